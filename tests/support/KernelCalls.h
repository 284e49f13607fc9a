#pragma once

#include <memory>

#include "support/ImportReplacement.h"

/// Counts the calls of the DLL that go to the kernel for an object: waits, mutexes, events, handles. Only
/// functions that the DLL imports can be called, so the others are skipped. A slim lock or a condition
/// variable that has to wait is not seen.
class KernelCalls
{
public:
    explicit KernelCalls(HMODULE module)
    {
        add<"WaitForSingleObject", "WaitForSingleObjectEx", "WaitForMultipleObjects",
            "WaitForMultipleObjectsEx", "SignalObjectAndWait", "ReleaseMutex", "CreateMutexW", "CreateEventW",
            "OpenEventW", "SetEvent", "ResetEvent", "CreateSemaphoreW", "ReleaseSemaphore", "CloseHandle",
            "DuplicateHandle", "CreateEventA", "CreateSemaphoreA", "Sleep", "SleepEx">(module);
    }

    [[nodiscard]] long total() const
    {
        long sum = -m_before;
        for (const auto& calls : m_counts)
            sum += calls();
        return sum;
    }
    void reset() { m_before += total(); }
    /// Only the threads that call this are counted: others may still be finishing an earlier test's work.
    void countThisThread() { m_threads[m_counted++] = GetCurrentThreadId(); }

private:
    // All take up to seven numbers or pointers, so passing on seven covers every call.
    using Any = UINT_PTR(WINAPI*)(UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR);
    template <ImportName Name, ImportName... Others>
    void add(HMODULE module)
    {
        try {
            const auto counted = std::make_shared<CountedImport<Name, Any>>(module);
            const auto others = std::make_shared<std::atomic<long>>(0);
            counted->setHook([this, others](auto original, auto... arguments) {
                const DWORD thread = GetCurrentThreadId();
                *others += m_counted == 0 || std::count(m_threads, std::end(m_threads), thread) != 0 ? 0 : 1;
                return original(arguments...);
            });
            m_counts.emplace_back([counted, others] { return counted->calls() - *others; });
        } catch (const std::runtime_error&) { // NOLINT(bugprone-empty-catch): not imported, so never called
        }
        if constexpr (sizeof...(Others) > 0)
            add<Others...>(module);
    }

    std::atomic<DWORD> m_threads[8]{};
    std::atomic<unsigned> m_counted{0};
    std::vector<std::function<long()>> m_counts;
    long m_before = 0;
};
