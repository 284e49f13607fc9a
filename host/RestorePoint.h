#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

/// A restore manager of the library, open for a scope.
class RestoreManagerHandle
{
public:
    /// Throws the Win32 code as a long.
    explicit RestoreManagerHandle(const std::wstring& name);
    RestoreManagerHandle(const RestoreManagerHandle&) = delete;
    RestoreManagerHandle& operator=(const RestoreManagerHandle&) = delete;
    ~RestoreManagerHandle();

    [[nodiscard]] void* get() const noexcept { return m_handle; }

private:
    void* m_handle;
};

/// A restore point that was created.
struct RestorePoint
{
    std::int64_t number = 0;
    std::wstring name;
};

/// Creates a restore point; this cannot be cancelled. Returns 0 or the Win32 code.
long makeRestorePoint(const std::wstring& name, RestorePoint& point);

/// Why there is no restore point, in words.
std::wstring formatRestoreCode(long code);

/// For --restore-point: creates one before a command changes anything, and reports it. False: there is none,
/// and nothing may be changed.
bool makeRestorePointFirst(const std::wstring& command);
