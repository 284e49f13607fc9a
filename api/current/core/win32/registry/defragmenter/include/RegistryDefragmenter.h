#pragma once

#include <atomic>
#include <functional>

#include "core/win32/registry/defragmenter/include/CollectedResults.h"
#include "core/win32/registry/defragmenter/include/IRegistryDefragmenter.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "core/win32/utils/threadpool/include/ThreadPool.h"

/// The defragmenter of the process. One analysis at a time uses its pool.
class RegistryDefragmenter final : public IRegistryDefragmenter
{
public:
    static constexpr const char* kClassName = "RegistryDefragmenter";

    void analyze(RDAnalyzerResults& results, void* stopEvent) override { analyze(results, stopEvent, {}); }
    /// The same with a function that is called after each hive, on the thread of the pool, and returns
    /// whether to go on.
    void analyze(RDAnalyzerResults& results, void* stopEvent, const std::function<bool()>& afterHive);
    void getResults(RDAnalyzerResults& results) override { results = m_collected.copy(); }
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;

private:
    /// Refuses a second analysis with 170 while one is running.
    class Turn;
    /// The worker in the pool.
    class Run;

    /// The pool of the workers with their category, created at the first request. Raises an Exception.
    [[nodiscard]] const PoolOpening& requireCategory();

    std::atomic<bool> m_isBusy{false};
    mutable CollectedResults m_collected;
    PoolOpening m_pool;
};

/// The table of the defragmenter, which holds a pool.
extern ObjectTable<SingletonPtr<RegistryDefragmenter>> registryDefragmenters;

/// Creates the defragmenter under that name, or opens the existing one. Returns its handle, or the invalid
/// handle with the last error; `place` is the place of failures.
[[nodiscard]] void* createRegistryDefragmenter(const char* place, const wchar_t* name) noexcept;
