#pragma once

#include <windows.h>

#include <algorithm>
#include <stdexcept>
#include <string>

/// The Unix form of a path, which Wine keeps behind every drive letter.
inline std::wstring unixPath(const std::wstring& path)
{
    using UnixName = char*(CDECL*)(const wchar_t*);
    const auto convert = reinterpret_cast<UnixName>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    char* name = convert != nullptr ? convert(path.c_str()) : nullptr;
    if (name == nullptr)
        throw std::runtime_error("no Unix name");
    wchar_t text[4096];
    MultiByteToWideChar(CP_UTF8, 0, name, -1, text, 4096);
    HeapFree(GetProcessHeap(), 0, name);
    return text;
}

/// Runs a Unix command, which share modes do not keep from anything, and waits for its last step: the file
/// that tells of the end. Wine gives no process handle to wait on.
inline void runUnix(const std::wstring& command)
{
    static long count = 0;
    wchar_t temporary[MAX_PATH];
    GetTempPathW(MAX_PATH, temporary);
    const std::wstring done = std::wstring(temporary) + L"done-" + std::to_wstring(GetCurrentProcessId()) +
                              L"-" + std::to_wstring(++count);
    std::wstring line = L"/bin/sh -c \"" + command + L"; touch '" + unixPath(temporary) +
                        done.substr(std::wstring(temporary).size()) + L"'\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(L"Z:\\bin\\sh", line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        throw std::runtime_error("no Unix shell");
    for (int attempt = 0; GetFileAttributesW(done.c_str()) == INVALID_FILE_ATTRIBUTES; ++attempt) {
        if (attempt == 6000)
            throw std::runtime_error("the Unix command does not end");
        Sleep(10);
    }
    DeleteFileW(done.c_str());
}

/// Makes a link to a folder.
inline void makeLink(const std::wstring& target, const std::wstring& link)
{
    runUnix(L"ln -s '" + unixPath(target) + L"' '" + unixPath(link) + L"'");
}

/// Puts a link to `target` where `folder` stands, which is moved away: to `folder` and ".old".
inline void swapForLink(const std::wstring& folder, const std::wstring& target)
{
    const std::wstring name = unixPath(folder);
    runUnix(L"mv '" + name + L"' '" + name + L".old'; ln -s '" + unixPath(target) + L"' '" + name + L"'");
}
