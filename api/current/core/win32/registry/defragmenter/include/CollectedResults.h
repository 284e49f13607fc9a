#pragma once

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "win32/registry/include/RDAnalyzerResults.h"

/// The results of an analysis as they come in, safe for several threads. Its operations raise std::bad_alloc.
class CollectedResults
{
public:
    void addResult(const wchar_t* mountName, const wchar_t* path, std::uint64_t oldSize,
                   std::uint64_t newSize)
    {
        const WriteLocker locker(m_lock);
        m_results.addResult(mountName, path, oldSize, newSize);
    }
    void addFailure(const wchar_t* mountName, const wchar_t* path, std::uint32_t code, const wchar_t* report)
    {
        const WriteLocker locker(m_lock);
        m_results.addFailure(mountName, path, code, report);
    }
    [[nodiscard]] RDAnalyzerResults copy()
    {
        const ReadLocker locker(m_lock);
        return m_results;
    }
    /// Replaces them all.
    void replace(RDAnalyzerResults&& results) noexcept
    {
        const WriteLocker locker(m_lock);
        std::swap(m_results, results);
    }

private:
    ReadWriteLock m_lock;
    RDAnalyzerResults m_results;
};
