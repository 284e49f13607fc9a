#pragma once

#include "win32/registry/include/RDAnalyzerResults.h"

/// Measures the loaded registry hives; the exported functions say what the operations do. They raise their
/// failures.
struct IRegistryDefragmenter : SerializableW
{
    virtual void analyze(RDAnalyzerResults& results, void* stopEvent) = 0;
    virtual void getResults(RDAnalyzerResults& results) = 0;
};
