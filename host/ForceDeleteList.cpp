#include "ForceDeleteList.h"

#include <algorithm>
#include <string_view>

#include "Console.h"
#include "OwnedHandle.h"
#include "engine/BootNames.h"
#include "engine/ListLines.h"

namespace {
/// The text of the list, aligned.
long readText(std::wstring& text)
{
    wchar_t folder[MAX_PATH];
    const UINT length = GetWindowsDirectoryW(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        return static_cast<long>(length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE);
    if (isWindowsFolderPrivate())
        return ERROR_BAD_ENVIRONMENT;
    const std::wstring path = std::wstring(folder, length) + L"\\ForceDelete.txt";
    OwnedHandle file;
    for (int attempt = 0;; ++attempt) { // a program that appends holds it exclusively meanwhile
        file.reset(::CreateFileW(path.c_str(), GENERIC_READ,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                 OPEN_EXISTING, 0, nullptr));
        if (file.get() != INVALID_HANDLE_VALUE)
            break;
        const DWORD code = GetLastError();
        if (code != ERROR_SHARING_VIOLATION || attempt == 100)
            return static_cast<long>(code == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : code);
        Sleep(10);
    }
    std::string bytes;
    char piece[16384];
    DWORD got = 0;
    do {
        if (!ReadFile(file.get(), piece, sizeof piece, &got, nullptr))
            return static_cast<long>(GetLastError());
        bytes.append(piece, got);
    } while (got != 0);
    text.resize(alignedRoom(bytes.size()) / sizeof(wchar_t) + 1);
    text.resize(alignList(bytes.data(), bytes.size(), text.data()) / sizeof(wchar_t));
    return ERROR_SUCCESS;
}

/// The file of one line, or nothing for a line that names none.
std::wstring_view fileOf(std::wstring_view line)
{
    constexpr std::wstring_view kPrefix(bootnames::kLineBegin.data, bootnames::kLineBegin.length);
    const std::size_t end = line.find(L"*\t*", kPrefix.size());
    if (line.substr(0, kPrefix.size()) != kPrefix || end == std::wstring_view::npos)
        return {};
    return line.substr(kPrefix.size(), end - kPrefix.size());
}
} // namespace

bool isWindowsFolderPrivate()
{
    wchar_t folder[MAX_PATH] = {};
    wchar_t real[MAX_PATH] = {};
    const UINT length = GetWindowsDirectoryW(folder, MAX_PATH);
    const UINT realLength = GetSystemWindowsDirectoryW(real, MAX_PATH);
    return length != 0 && length < MAX_PATH && realLength != 0 && realLength < MAX_PATH &&
           _wcsicmp(folder, real) != 0;
}

ForceDeleteList readForceDeleteList()
{
    ForceDeleteList list;
    std::wstring text;
    list.code = readText(text);
    ListLines lines(Text(text.data(), text.size()));
    for (ListLine line; lines.next(line);) {
        const std::wstring_view whole(line.text.data, line.text.length);
        list.lines.push_back(
            {std::wstring(whole), std::wstring(line.isWhole && !line.isDoubtful ? fileOf(whole) : L"")});
        list.wrongLines += list.lines.back().file.empty() ? 1 : 0;
    }
    return list;
}

std::wstring visibleText(const std::wstring& text)
{
    std::wstring room(text.size() * 4, L'\0');
    TextBuilder builder(room.data(), room.size());
    room.resize(builder.addVisible(Text(text.data(), text.size())).text().length);
    return printable(room);
}
