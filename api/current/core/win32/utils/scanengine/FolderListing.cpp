#include "core/win32/utils/scanengine/include/FolderListing.h"

#include <cstring>

#include "core/win32/utils/paths/include/Win32Path.h"

namespace {
constexpr std::size_t kBufferSize = 0x10000; // the most that a network share returns at once

bool isDots(std::wstring_view name) noexcept
{
    return name == L"." || name == L"..";
}

/// Whether a code means that the file system does not support this way of listing.
bool isUnsupported(DWORD code) noexcept
{
    return code == ERROR_INVALID_FUNCTION || code == ERROR_NOT_SUPPORTED || code == ERROR_INVALID_PARAMETER ||
           code == ERROR_INVALID_LEVEL;
}

unsigned long long joined(DWORD high, DWORD low) noexcept
{
    return (static_cast<unsigned long long>(high) << 32U) | low;
}
} // namespace

FolderListing::FolderListing(HANDLE folder, const wchar_t* path, Buffer& buffer)
    : m_folder(folder), m_path(path), m_buffer(buffer)
{
    if (m_folder != nullptr && m_buffer.empty())
        m_buffer.resize(kBufferSize);
}

const FolderEntry* FolderListing::next()
{
    do {
        if (m_folder != nullptr && m_position == m_end)
            fillBuffer();
        if (!(m_folder != nullptr ? takeFromBuffer() : findNext()))
            return nullptr;
    } while (isDots(m_entry.name));
    return &m_entry;
}

void FolderListing::fillBuffer()
{
    // The first query restarts: the handle may have been listed before.
    const auto question = m_hasBegun ? FileIdBothDirectoryInfo : FileIdBothDirectoryRestartInfo;
    const auto size = static_cast<DWORD>(m_buffer.size());
    m_position = 0;
    m_end = 0;
    if (GetFileInformationByHandleEx(m_folder, question, m_buffer.data(), size)) {
        m_hasBegun = true;
        m_end = size;
        return;
    }
    const DWORD code = GetLastError();
    if (!m_hasBegun && isUnsupported(code)) {
        m_folder = nullptr;
        return;
    }
    // For the root of an empty volume the system reports that not even "." exists.
    if (code != ERROR_NO_MORE_FILES && (m_hasBegun || code != ERROR_FILE_NOT_FOUND))
        raiseCode(code);
}

bool FolderListing::takeFromBuffer()
{
    if (m_position == m_end)
        return false;
    constexpr std::size_t kNameAt = offsetof(FILE_ID_BOTH_DIR_INFO, FileName);
    const std::size_t left = m_end - m_position;
    const auto* info = reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(m_buffer.data() + m_position);
    if (left < kNameAt || info->FileNameLength > left - kNameAt || info->NextEntryOffset >= left ||
        info->NextEntryOffset % alignof(FILE_ID_BOTH_DIR_INFO) != 0)
        raiseCode(ERROR_INVALID_DATA);
    m_position = info->NextEntryOffset != 0 ? m_position + info->NextEntryOffset : m_end;
    // For a reparse point the system returns the tag in place of the size of extended attributes.
    const bool isReparsePoint = (info->FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    m_entry = {{info->FileName, info->FileNameLength / sizeof(wchar_t)},
               info->FileAttributes,
               isReparsePoint ? info->EaSize : 0,
               static_cast<unsigned long long>(info->EndOfFile.QuadPart)};
    return true;
}

bool FolderListing::beginSearch()
{
    const HeapStringW mask = joinPath(m_path, L"*");
    const Win32Path target(mask.c_str());
    m_search.reset(FindFirstFileExW(target, FindExInfoBasic, &m_found, FindExSearchNameMatch, nullptr,
                                    FIND_FIRST_EX_LARGE_FETCH));
    // Systems that support neither basic information nor large fetches report such a code.
    if (!m_search.isValid() && isUnsupported(GetLastError()))
        m_search.reset(FindFirstFileW(target, &m_found));
    if (m_search.isValid())
        return true;
    const DWORD code = GetLastError();
    if (code == ERROR_FILE_NOT_FOUND) {
        const DWORD attributes = GetFileAttributesW(m_path);
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
            return false; // it exists without even "." in it: the root of an empty volume
    }
    raiseCode(code);
}

bool FolderListing::findNext()
{
    if (!m_search.isValid()) {
        if (m_hasBegun || !beginSearch())
            return false;
        m_hasBegun = true;
    } else if (!FindNextFileW(m_search.get(), &m_found)) {
        const DWORD code = GetLastError();
        if (code != ERROR_NO_MORE_FILES)
            raiseCode(code);
        return false;
    }
    m_entry = {m_found.cFileName, m_found.dwFileAttributes, m_found.dwReserved0,
               joined(m_found.nFileSizeHigh, m_found.nFileSizeLow)};
    return true;
}
