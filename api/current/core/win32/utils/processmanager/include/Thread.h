#pragma once

#include <string>

#include "core/win32/utils/processmanager/include/Process.h"

/// One thread, known by its process, its id and its start time, and opened anew by each operation.
///
/// The operations raise bare codes. The exported functions say what each does.
class Thread
{
public:
    static constexpr const char* kClassName = "Thread";

    explicit Thread(const ThreadEntry& entry) noexcept : m_entry(entry) {}
    virtual ~Thread() = default;

    [[nodiscard]] static std::wstring defaultName(const ThreadEntry& entry);

    /// As it is now.
    [[nodiscard]] ThreadEntry details() const;
    [[nodiscard]] bool isRunning() const;
    void wait(unsigned long timeout, HANDLE cancelEvent) const;
    /// How often it was suspended before.
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
