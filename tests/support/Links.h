#pragma once

#include "support/Test.h"

// Creates links to folders, and replaces folders with them, between two instructions of the test. Wine
// creates no links itself (CreateSymbolicLinkW is a stub) and its MoveFileExW moves a link's target, so this
// calls the kernel below it: a Windows program runs natively there, one call takes some 5 microseconds, and
// share modes do not restrict it.

/// One call of the Linux kernel: its result, or the negative errno.
inline long long unixCall(long long number, const void* first = nullptr, const void* second = nullptr,
                          const void* third = nullptr)
{
#ifdef __GNUC__
    long long result = 0;
    asm volatile("syscall" // NOLINT(*-no-assembler)
                 : "=a"(result)
                 : "a"(number), "D"(first), "S"(second), "d"(third)
                 : "rcx", "r11", "memory");
    return result;
#else
#error "these tests need Wine and a compiler that can call its kernel"
#endif
}

/// A number where unixCall takes a pointer.
inline const void* unixArgument(long long value)
{
    return reinterpret_cast<const void*>(value); // NOLINT(performance-no-int-to-ptr)
}

/// The kernel's path of a Windows path. Its folder must exist; its last name is taken literally and need not
/// exist. Throws on real Windows, where the kernel must not be called like this.
inline std::string unixPath(const std::wstring& path)
{
    using Translate = char*(__cdecl*)(const wchar_t*);
    static const auto translate = reinterpret_cast<Translate>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    const std::size_t name = path.find_last_of(L'\\') + 1;
    char* folder = translate == nullptr ? nullptr : translate((L"\\\\?\\" + path.substr(0, name)).c_str());
    if (folder == nullptr)
        throw std::runtime_error("no such folder below Wine: " + utf8(path));
    std::string result = std::string(folder) + "/" + utf8(path.substr(name));
    HeapFree(GetProcessHeap(), 0, folder);
    return result;
}

/// Renames what a path names, even if it is open. Throws, like the next two, when that fails.
inline void moveAway(const std::wstring& from, const std::wstring& to)
{
    constexpr long long kRename = 82;
    if (unixCall(kRename, unixPath(from).c_str(), unixPath(to).c_str()) != 0)
        throw std::runtime_error("cannot move " + utf8(from));
}

/// Makes `link` a symbolic link to the folder `target`, both absolute paths.
inline void makeLink(const std::wstring& target, const std::wstring& link)
{
    constexpr long long kMakeLink = 88;
    if (unixCall(kMakeLink, unixPath(target).c_str(), unixPath(link).c_str()) != 0)
        throw std::runtime_error("cannot link " + utf8(link));
}

/// Makes the key `link` below `root` a symbolic link to the key of that name in the kernel.
inline void makeKeyLink(HKEY root, const std::wstring& link, const std::wstring& target)
{
    HKEY key = nullptr;
    const auto size = static_cast<DWORD>(target.size() * sizeof(wchar_t));
    if (RegCreateKeyExW(root, link.c_str(), 0, nullptr, REG_OPTION_CREATE_LINK, KEY_ALL_ACCESS, nullptr, &key,
                        nullptr) != 0 ||
        RegSetKeyValueW(key, nullptr, L"SymbolicLinkValue", REG_LINK, target.data(), size) != 0)
        throw std::runtime_error("cannot link " + utf8(link));
    RegCloseKey(key);
}

/// Replaces `folder` with a link to `target`; the folder is moved away to `folder` and ".old".
inline void swapForLink(const std::wstring& folder, const std::wstring& target)
{
    moveAway(folder, folder + L".old");
    makeLink(target, folder);
}
