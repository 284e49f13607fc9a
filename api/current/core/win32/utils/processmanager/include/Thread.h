#pragma once

#include <string>

#include "core/win32/utils/processmanager/include/Process.h"

/// One thread, identified by its process, its id and its start time. Each operation opens it anew.
///
/// The operations raise bare codes. The exported functions document them.
class Thread
{
public:
    static constexpr const char* kClassName = "Thread";

    explicit Thread(const ThreadEntry& entry) noexcept : m_entry(entry) {}
    virtual ~Thread() = default;

    [[nodiscard]] static std::wstring defaultName(const ThreadEntry& entry);

    /// Its current details.
    [[nodiscard]] ThreadEntry details() const;
    [[nodiscard]] bool isRunning() const;
    void wait(unsigned long timeout, HANDLE cancelEvent) const;
    /// Returns the previous suspend count.
    [[nodiscard]] unsigned long suspend() const;
    [[nodiscard]] unsigned long resume() const;
    void setPriority(long priority) const;

private:
    [[nodiscard]] Win32Handle open(DWORD access) const;
    [[nodiscard]] Win32Handle openUnprotected() const;

    ThreadEntry m_entry;
};

/// The table of all thread objects.
extern ObjectTable<SharedPtr<Thread>> threadObjects;
