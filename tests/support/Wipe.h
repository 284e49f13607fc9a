#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/win32/utils/wiper/api.h"
#include "support/ImportReplacement.h"
#include "support/Scan.h"

using Bytes = std::vector<unsigned char>;

inline void writeBytes(const std::wstring& path, const Bytes& bytes)
{
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
    ASSERT_EQ(written, bytes.size());
}

/// All bytes of a file; of a missing one none.
inline Bytes readBytes(const std::wstring& path)
{
    const HANDLE file =
        ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return {};
    Bytes bytes(GetFileSize(file, nullptr));
    DWORD got = 0;
    ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &got, nullptr);
    CloseHandle(file);
    bytes.resize(got);
    return bytes;
}

inline bool isThere(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

inline std::wstring bootListPath()
{
    wchar_t folder[MAX_PATH];
    GetWindowsDirectoryW(folder, MAX_PATH);
    return std::wstring(folder) + L"\\ForceDelete.txt";
}

/// What is on the boot-time list, which is empty afterwards.
inline std::wstring takeBootList()
{
    const Bytes bytes = readBytes(bootListPath());
    DeleteFileW(bootListPath().c_str());
    return {reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t)};
}

struct Event
{
    HANDLE handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ~Event() { CloseHandle(handle); }
};
