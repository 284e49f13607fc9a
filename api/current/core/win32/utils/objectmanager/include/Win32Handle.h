#pragma once

#include <windows.h>

#include <cstdint>
#include <cwchar>
#include <utility>

/// Owner of one Win32 resource. `Traits` defines its type, its empty value and how it is closed.
template <class Traits>
class Win32Owner
{
public:
    using Value = typename Traits::Value;

    Win32Owner() noexcept = default;
    explicit Win32Owner(Value value) noexcept : m_value(value) {}
    Win32Owner(Win32Owner&& other) noexcept : m_value(other.release()) {}
    Win32Owner& operator=(Win32Owner&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    ~Win32Owner() { reset(); }

    [[nodiscard]] Value get() const noexcept { return m_value; }
    [[nodiscard]] bool isValid() const noexcept { return Traits::isValid(m_value); }
    [[nodiscard]] Value release() noexcept { return std::exchange(m_value, Value{}); }
    /// Closes the held resource and holds `value` instead. Leaves the thread's last error unchanged.
    void reset(Value value = Value{}) noexcept
    {
        if (isValid()) {
            const DWORD lastError = GetLastError();
            Traits::close(m_value);
            SetLastError(lastError);
        }
        m_value = value;
    }

private:
    Value m_value{};
};

struct KernelHandleTraits
{
    using Value = HANDLE;
    static bool isValid(HANDLE handle) noexcept
    {
        return handle != nullptr && handle != INVALID_HANDLE_VALUE;
    }
    static void close(HANDLE handle) noexcept { CloseHandle(handle); }
};

struct FindHandleTraits
{
    using Value = HANDLE;
    static bool isValid(HANDLE handle) noexcept
    {
        return handle != nullptr && handle != INVALID_HANDLE_VALUE;
    }
    static void close(HANDLE handle) noexcept { FindClose(handle); }
};

struct RegistryKeyTraits
{
    using Value = HKEY;
    static bool isValid(HKEY key) noexcept { return key != nullptr; }
    static void close(HKEY key) noexcept
    {
        // Opening a predefined key without a path returns that key itself, which is shared. Predefined
        // handles are sign-extended, hence negative.
        if (reinterpret_cast<std::intptr_t>(key) > 0)
            RegCloseKey(key);
    }
};

struct ModuleTraits
{
    using Value = HMODULE;
    static bool isValid(HMODULE module) noexcept { return module != nullptr; }
    static void close(HMODULE module) noexcept { FreeLibrary(module); }
};

/// A file, event, thread or other kernel object.
using Win32Handle = Win32Owner<KernelHandleTraits>;
/// A directory search.
using FindHandle = Win32Owner<FindHandleTraits>;
/// An opened registry key; a predefined one is not closed.
using RegistryKeyHandle = Win32Owner<RegistryKeyTraits>;
/// A loaded module.
using ModuleHandle = Win32Owner<ModuleTraits>;

/// Loads a system library from the system directory only: this library runs as administrator and must not
/// pick up a foreign file. Empty on failure, with the last error set. A Windows 7 without the update of 2011
/// (KB2533623) cannot restrict the search like this (87), and gets the whole path.
[[nodiscard]] inline ModuleHandle loadSystemModule(const wchar_t* name)
{
    ModuleHandle module(LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
    if (module.isValid() || GetLastError() != ERROR_INVALID_PARAMETER)
        return module;
    wchar_t path[MAX_PATH];
    const UINT length = GetSystemDirectoryW(path, MAX_PATH);
    if (length == 0 || length + 1 + std::wcslen(name) >= MAX_PATH) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return module;
    }
    path[length] = L'\\';
    std::wcscpy(path + length + 1, name);
    module.reset(LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    return module;
}

/// Whether an event is signalled: one poll without waiting. A null event never is. One that cannot be polled
/// is: nothing else could end the work.
[[nodiscard]] inline bool isSignalled(HANDLE event) noexcept
{
    return event != nullptr && WaitForSingleObject(event, 0) != WAIT_TIMEOUT;
}
