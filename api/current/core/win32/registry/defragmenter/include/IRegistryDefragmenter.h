#pragma once

#include "win32/registry/include/RDAnalyzerResults.h"

/// Measures the loaded registry hives. The exported functions document the operations, which raise their
/// failures.
struct IRegistryDefragmenter : SerializableW
{
    virtual void analyze(RDAnalyzerResults& results, void* stopEvent) = 0;
    virtual void getResults(RDAnalyzerResults& results) = 0;
};
