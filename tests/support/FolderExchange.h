#pragma once

#include <windows.h>

#include <array>
#include <stdexcept>
#include <string>

// Links to folders, made and put in the place of folders between two instructions of the test. Wine makes no
// links itself (CreateSymbolicLinkW is a stub) and its MoveFileExW moves what a link leads to, so the kernel
// below it is asked: a Windows program runs natively there, and one call takes some 5 microseconds.

/// One call of the Linux kernel: its result, or the negative errno.
inline long long unixCall(long long number, const void* first = nullptr, const void* second = nullptr,
                          const void* third = nullptr, const void* fourth = nullptr, long long fifth = 0)
{
#ifdef __GNUC__
    register const void* r10 asm("r10") = fourth; // NOLINT(*-no-assembler)
    register long long r8 asm("r8") = fifth;      // NOLINT(*-no-assembler)
    long long result = 0;
    asm volatile("syscall" // NOLINT(*-no-assembler)
                 : "=a"(result)
                 : "a"(number), "D"(first), "S"(second), "d"(third), "r"(r10), "r"(r8)
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

inline std::string utf8(const std::wstring& text)
{
    std::array<char, 8192> bytes{};
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()),
                                           bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr);
    return {bytes.data(), static_cast<std::size_t>(length)};
}

/// Where a Windows path lies for the kernel. Its folder must exist; its last name is taken as it stands, and
/// needs not exist. Throws on real Windows, where no kernel must be called like this.
inline std::string unixPath(const std::wstring& path)
{
    using Translate = char*(__cdecl*)(const wchar_t*);
    static const auto translate = reinterpret_cast<Translate>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    const std::size_t slash = path.find_last_of(L'\\');
    std::wstring folder = path.substr(0, slash + 1);
    if (folder.compare(0, 4, L"\\\\?\\") != 0)
        folder.insert(0, L"\\\\?\\");
    char* found = translate == nullptr ? nullptr : translate(folder.c_str());
    if (found == nullptr)
        throw std::runtime_error("no such folder below Wine: " + utf8(folder));
    std::string result = found;
    HeapFree(GetProcessHeap(), 0, found);
    if (result.back() != '/')
        result += '/';
    return result + utf8(path.substr(slash + 1));
}

/// Makes `link` a symbolic link that leads to the folder `target`, both absolute paths.
inline void makeLink(const std::wstring& link, const std::wstring& target)
{
    constexpr long long kSymlink = 88;
    const long long code = unixCall(kSymlink, unixPath(target).c_str(), unixPath(link).c_str());
    if (code != 0)
        throw std::runtime_error("symlink of " + utf8(link) + ": " + std::to_string(-code));
}

/// Whether Windows would let nobody move this folder now: it is open without sharing its deletion, or
/// something in it is open at all. The kernel knows nothing of that and has to be kept from doing what
/// Windows refuses. Handles that ask for attributes alone hold nothing, there as here.
inline bool isHeld(const std::wstring& folder,
                   DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE)
{
    const HANDLE probe = ::CreateFileW(folder.c_str(), DELETE, share, nullptr, OPEN_EXISTING,
                                       FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (probe == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_SHARING_VIOLATION;
    CloseHandle(probe);
    WIN32_FIND_DATAW entry;
    const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    bool held = false;
    do {
        const std::wstring name = entry.cFileName;
        const bool link = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        if (name != L"." && name != L".." && !link)
            held = isHeld(folder + L"\\" + name, 0);
    } while (!held && FindNextFileW(search, &entry));
    FindClose(search);
    return held;
}

/// Exchanges what stands under two paths, of the same volume, in one step: a folder and the link that takes
/// its place. The same call puts both back. False, and nothing happens, where Windows would not let the
/// folder go.
inline bool exchange(const std::wstring& folder, const std::wstring& link)
{
    if (isHeld(folder))
        return false;
    constexpr long long kRenameAt2 = 316;
    constexpr long long kCurrentFolder = -100;
    constexpr long long kExchange = 2;
    const long long code = unixCall(kRenameAt2, unixArgument(kCurrentFolder), unixPath(folder).c_str(),
                                    unixArgument(kCurrentFolder), unixPath(link).c_str(), kExchange);
    if (code != 0)
        throw std::runtime_error("exchange of " + utf8(folder) + ": " + std::to_string(-code));
    return true;
}
