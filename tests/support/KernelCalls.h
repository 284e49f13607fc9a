#pragma once

#include <memory>

#include "support/ImportReplacement.h"

/// Counts the calls of the DLL that go to the kernel for an object: waits, mutexes, events, handles. Only the
/// functions that the DLL imports can be called, so the others are passed over. A slim lock or a condition
/// variable that has to wait is not seen.
class KernelCalls
{
public:
    explicit KernelCalls(HMODULE module)
    {
        add<"WaitForSingleObject", decltype(&WaitForSingleObject)>(module);
        add<"WaitForSingleObjectEx", decltype(&WaitForSingleObjectEx)>(module);
        add<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)>(module);
        add<"WaitForMultipleObjectsEx", decltype(&WaitForMultipleObjectsEx)>(module);
        add<"SignalObjectAndWait", decltype(&SignalObjectAndWait)>(module);
        add<"ReleaseMutex", decltype(&ReleaseMutex)>(module);
        add<"CreateMutexW", decltype(&CreateMutexW)>(module);
        add<"CreateEventW", decltype(&CreateEventW)>(module);
        add<"OpenEventW", decltype(&OpenEventW)>(module);
        add<"SetEvent", decltype(&SetEvent)>(module);
        add<"ResetEvent", decltype(&ResetEvent)>(module);
        add<"CreateSemaphoreW", decltype(&CreateSemaphoreW)>(module);
        add<"ReleaseSemaphore", decltype(&ReleaseSemaphore)>(module);
        add<"CloseHandle", decltype(&CloseHandle)>(module);
        add<"DuplicateHandle", decltype(&DuplicateHandle)>(module);
        add<"CreateEventA", decltype(&CreateEventA)>(module);
        add<"CreateSemaphoreA", decltype(&CreateSemaphoreA)>(module);
        add<"Sleep", decltype(&Sleep)>(module);
        add<"SleepEx", decltype(&SleepEx)>(module);
    }

    [[nodiscard]] long total() const
    {
        long sum = 0;
        for (const auto& counter : m_counters)
            sum += counter->calls();
        return sum;
    }
    void reset()
    {
        for (const auto& counter : m_counters)
            counter->reset();
    }

private:
    struct Counter
    {
        virtual ~Counter() = default;
        [[nodiscard]] virtual long calls() const = 0;
        virtual void reset() = 0;
    };
    template <ImportName Name, class Function>
    struct CounterOf : Counter
    {
        explicit CounterOf(HMODULE module) : import(module) {}
        [[nodiscard]] long calls() const override { return import.calls(); }
        void reset() override { import.reset(); }
        CountedImport<Name, Function> import;
    };
    template <ImportName Name, class Function>
    void add(HMODULE module)
    {
        try {
            m_counters.push_back(std::make_unique<CounterOf<Name, Function>>(module));
        } catch (const std::runtime_error&) { // NOLINT(bugprone-empty-catch): not imported, so never called
        }
    }

    std::vector<std::unique_ptr<Counter>> m_counters;
};
