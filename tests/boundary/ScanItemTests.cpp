#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "support/ImportReplacement.h"
#include "support/Scan.h"
#include "support/Threads.h"

namespace {
bool exists(const std::wstring& literalPath)
{
    return GetFileAttributesW((L"\\\\?\\" + literalPath).c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string content(IFile& file)
{
    unsigned long long size = 0;
    const void* data = file.getData(size);
    return std::string(static_cast<const char*>(data), static_cast<std::size_t>(size));
}

using FilePtr = std::unique_ptr<IFile>;
using DirectoryPtr = std::unique_ptr<IDirectory>;
} // namespace

TEST(ScanItems, FilesAreMadeReadAndDeletedUnderAnyName)
{
    const std::wstring folder = scratchFolder();
    std::wstring deep = folder;
    for (int level = 0; level < 5; ++level) {
        deep += L"\\" + std::wstring(120, static_cast<wchar_t>(L'a' + level));
        const DirectoryPtr directory(DllGetDirectory(deep.c_str(), 0));
        EXPECT_EQ(directory->exists(), 0);
        directory->create();
        EXPECT_NE(directory->exists(), 0);
        EXPECT_EQ(codeOf([&] { directory->create(); }), ERROR_ALREADY_EXISTS);
    }
    // Names that Win32 by itself takes for other names, beside the file that they would be taken for.
    const std::wstring names[] = {deep + L"\\far down",  folder + L"\\report", folder + L"\\report.",
                                  folder + L"\\report ", folder + L"\\nul",    folder + L"\\COM1.txt",
                                  folder + L"/aux"};
    for (const std::wstring& name : names) {
        const FilePtr file(DllGetFile(name.c_str(), 0));
        EXPECT_EQ(file->exists(), 0) << std::string(name.end() - 10, name.end());
        file->setData(name.data(), name.size() * sizeof(wchar_t));
        file->create();
        EXPECT_EQ(file->getSize(), name.size() * sizeof(wchar_t));
    }
    for (const std::wstring& name : names) {
        const FilePtr file(DllGetFile(name.c_str(), 0));
        EXPECT_STREQ(file->getPath(), name.c_str()) << "the text stays as it was given";
        EXPECT_NE(file->exists(), 0);
        EXPECT_EQ(content(*file),
                  std::string(reinterpret_cast<const char*>(name.data()), name.size() * sizeof(wchar_t)));
    }
    FilePtr(DllGetFile((folder + L"\\report.").c_str(), 0))->deleteItem();
    EXPECT_FALSE(exists(folder + L"\\report."));
    EXPECT_TRUE(exists(folder + L"\\report")) << "the wrong file was deleted";
    EXPECT_TRUE(exists(folder + L"\\report "));
    EXPECT_EQ(codeOf([&] { FilePtr(DllGetFile((folder + L"\\report.").c_str(), 0))->deleteItem(); }),
              ERROR_FILE_NOT_FOUND);

    const DirectoryPtr full(DllGetDirectory(deep.c_str(), 0));
    EXPECT_EQ(codeOf([&] { full->deleteItem(); }), ERROR_DIR_NOT_EMPTY);
    FilePtr(DllGetFile(names[0].c_str(), 0))->deleteItem();
    full->deleteItem();
    EXPECT_EQ(full->exists(), 0);
    EXPECT_NE(DirectoryPtr(DllGetDirectory((folder + L"\\").c_str(), 0))->exists(), 0);
    EXPECT_NE(DirectoryPtr(DllGetDirectory(L"C:\\", 0))->exists(), 0);
    EXPECT_NE(DirectoryPtr(DllGetDirectory(L".", 0))->exists(), 0);
    EXPECT_NE(DirectoryPtr(DllGetDirectory(L"..\\", 0))->exists(), 0);
    EXPECT_EQ(DirectoryPtr(DllGetDirectory(L"Q:\\", 0))->exists(), 0);
}

TEST(ScanItems, DataIsReadOnceAndAMissingFileIsLeftEmpty)
{
    const std::wstring path = scratchFolder() + L"\\data";
    const FilePtr missing(DllGetFile(path.c_str(), 0));
    EXPECT_EQ(content(*missing), "");
    EXPECT_TRUE(exists(path));

    const FilePtr writer(DllGetFile(path.c_str(), 0));
    writer->setData("12345", 5);
    writer->create();
    CountedImport<"ReadFile", decltype(&ReadFile)> reads(sysmaintModule());
    const FilePtr reader(DllGetFile(path.c_str(), 0));
    onThreadsAtOnce(8, [&](int) { EXPECT_EQ(content(*reader), "12345"); });
    EXPECT_EQ(reads.calls(), 1) << "all that ask at once get one reading";
    EXPECT_EQ(content(*reader), "12345");
    EXPECT_EQ(reads.calls(), 1);
    EXPECT_EQ(content(*missing), "") << "what was read is kept";
    EXPECT_EQ(codeOf([&] { reader->setData(nullptr, 5); }), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(codeOf([&] { reader->setData("abc", ~0ULL); }), ERROR_NOT_ENOUGH_MEMORY)
        << "a length that lies";
    EXPECT_EQ(content(*reader), "12345") << "a refused change changes nothing";
}

// Every system call of the file operations fails in turn; the code arrives and no handle stays open.
TEST(ScanItems, FailingSystemCalls)
{
    const std::wstring path = scratchFolder() + L"\\file";
    const DWORD handles = processHandleCount();
    const FilePtr file(DllGetFile(path.c_str(), 0));
    file->setData("abc", 3);
    {
        using Create = HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
        CountedImport<"CreateFileW", Create> creates(sysmaintModule());
        creates.failCall(1, INVALID_HANDLE_VALUE, ERROR_SHARING_VIOLATION);
        EXPECT_EQ(codeOf([&] { file->create(); }), ERROR_SHARING_VIOLATION);
        creates.failCall(1, INVALID_HANDLE_VALUE, ERROR_TOO_MANY_OPEN_FILES);
        EXPECT_EQ(codeOf([&] { content(*FilePtr(DllGetFile(path.c_str(), 0))); }), ERROR_TOO_MANY_OPEN_FILES);
    }
    {
        CountedImport<"WriteFile", decltype(&WriteFile)> writes(sysmaintModule());
        writes.failCall(1, FALSE, ERROR_DISK_FULL);
        EXPECT_EQ(codeOf([&] { file->create(); }), ERROR_DISK_FULL);
        // A system that takes less than it was given is asked again.
        writes.setHook(
            [](auto original, HANDLE target, LPCVOID data, DWORD size, LPDWORD written, LPOVERLAPPED) {
                return original(target, data, size > 1 ? 1 : size, written, nullptr);
            });
        file->create();
        EXPECT_EQ(content(*FilePtr(DllGetFile(path.c_str(), 0))), "abc");
    }
    {
        CountedImport<"ReadFile", decltype(&ReadFile)> reads(sysmaintModule());
        const FilePtr reader(DllGetFile(path.c_str(), 0));
        reads.failCall(1, FALSE, ERROR_CRC);
        EXPECT_EQ(codeOf([&] { content(*reader); }), ERROR_CRC);
        EXPECT_EQ(content(*reader), "abc") << "the failure is not kept as the content";
    }
    {
        CountedImport<"FindFirstFileW", decltype(&FindFirstFileW)> finds(sysmaintModule());
        finds.failCall(1, INVALID_HANDLE_VALUE, ERROR_NOT_READY);
        EXPECT_EQ(codeOf([&] { static_cast<void>(file->exists()); }), ERROR_NOT_READY)
            << "not known is not missing";
    }
    {
        CountedImport<"DeleteFileW", decltype(&DeleteFileW)> deletes(sysmaintModule());
        deletes.failCall(1, FALSE, ERROR_ACCESS_DENIED);
        EXPECT_EQ(codeOf([&] { file->deleteItem(); }), ERROR_ACCESS_DENIED);
        EXPECT_TRUE(exists(path));
    }
    EXPECT_EQ(processHandleCount(), handles);
}

TEST(ScanItems, StreamsHoldWhatTheCodeSays)
{
    const FilePtr file(DllGetFile(L"C:\\x", 0));
    file->setData("ab", 2);
    const unsigned char whole[] = {2,   0, 0,   0,                                         // the type
                                   10,  0, 0,   0, 0,    0, 0,   0,                        // the path
                                   'C', 0, ':', 0, '\\', 0, 'x', 0, 0, 0,                  //
                                   1,   0, 0,   0, 2,    0, 0,   0, 0, 0, 0, 0, 'a', 'b'}; // the data
    const auto dumped = [&](unsigned long code) {
        MemoryOutputByteStream stream;
        file->dump(code, stream);
        return std::string(reinterpret_cast<const char*>(stream.getData()), stream.getSize());
    };
    const std::string all(reinterpret_cast<const char*>(whole), sizeof whole);
    EXPECT_EQ(dumped(kStateAll), all);
    EXPECT_EQ(dumped(kStatePath), all.substr(4));
    EXPECT_EQ(dumped(kStateType), all.substr(0, 4) + all.substr(22));
    EXPECT_EQ(dumped(kStateNone), all.substr(22));

    const auto load = [](unsigned long code, const std::string& bytes) {
        MemoryInputByteStream stream(bytes.data(), bytes.size());
        return FilePtr(DllGetFile(code, stream));
    };
    const FilePtr loaded = load(kStateAll, all);
    ASSERT_NE(loaded, nullptr);
    EXPECT_STREQ(loaded->getPath(), L"C:\\x");
    EXPECT_EQ(content(*loaded), "ab");

    // Without its bit the path stays what it was.
    const std::string fields = all.substr(22);
    MemoryInputByteStream stream(fields.data(), fields.size());
    loaded->load(kStateNone, stream);
    EXPECT_STREQ(loaded->getPath(), L"C:\\x");
    EXPECT_STREQ(load(kStateNone, fields)->getPath(), L"");

    for (std::size_t length = 0; length < all.size(); ++length) {
        EXPECT_EQ(load(kStateAll, all.substr(0, length)), nullptr) << length;
        EXPECT_EQ(GetLastError(), ERROR_READ_FAULT) << length;
    }
    std::string other = all;
    other[0] = 1;
    EXPECT_EQ(load(kStateAll, other), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_DATA) << "a folder is no file";
    MemoryInputByteStream folder(other.data(), 22);
    const DirectoryPtr directory(DllGetDirectory(kStateAll, folder));
    ASSERT_NE(directory, nullptr);
    EXPECT_STREQ(directory->getPath(), L"C:\\x");
}

// An item under a name is opened only by its own kind, and its own text may be given to it again.
TEST(ScanItems, OpenAndSetAsWhatTheyAre)
{
    const std::wstring path = L"C:\\windows\\" + std::wstring(100, L'x');
    const std::function<void*(const wchar_t*)> makers[] = {
        [&](const wchar_t* name) { return CreateFileW(name, path.c_str(), 0); },
        [&](const wchar_t* name) { return CreateFilePath(name, path.c_str(), 0, 0); },
        [&](const wchar_t* name) { return CreateFilePath(name, path.c_str(), 0, 1); },
    };
    for (const auto& first : makers)
        for (const auto& second : makers) {
            void* filed = first(L"kinds");
            void* other = second(L"kinds");
            EXPECT_EQ(other, &first == &second ? filed : INVALID_HANDLE_VALUE);
            EXPECT_TRUE(&first == &second || GetLastError() == ERROR_ALREADY_EXISTS);
            CloseScanItem(filed);
            CloseScanItem(other);
        }
    SharedPtr<ScanItem> item;
    void* handle = CreateFileW(L"own text", path.c_str(), 0);
    ASSERT_EQ(GetScanItemByHandle(handle, item), 0);
    for (const wchar_t* text : {path.c_str(), L"C:\\x"})
        for (const int expand : {0, 1}) {
            item->setPath(text, 0);
            item->setPath(item->getPath(), expand);
            EXPECT_STREQ(item->getPath(), text);
        }
    CloseScanItem(handle);
}

TEST(ScanItems, FolderMacros)
{
    const std::wstring windows = L"C:\\windows";
    SetEnvironmentVariableW(L"SYSMAINT_VALUE", L"some %windir% value");
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    const std::wstring current = std::wstring(program).substr(0, std::wstring(program).rfind(L'\\'));
    const struct
    {
        std::wstring path;
        std::wstring expanded;
    } rows[] = {
        {L"C:\\plain", L"C:\\plain"},
        {L"%windir%\\x", windows + L"\\x"},
        {L"%WinDir%", windows},
        {L"%windir%;%SYSTEM%;%windir%", windows + L";" + windows + L"\\system32;" + windows},
        {L"%current%\\logs", current + L"\\logs"},
        {L"%sysmaint_value%!", L"some %windir% value!"}, // values are not expanded again
        {L"%no such macro%\\%windir%", L"%no such macro%\\" + windows},
        {L"100%windir%", L"100" + windows},
        {L"100%%windir%%", L"100%" + windows + L"%"},
        {L"%no%windir%", L"%no" + windows}, // the sign that ends an unknown name may open a known one
        {L"%", L"%"},
        {L"%%", L"%%"},
        {L"", L""},
    };
    for (const auto& row : rows)
        EXPECT_STREQ(DirectoryPtr(DllGetDirectory(row.path.c_str(), 1))->getPath(), row.expanded.c_str());
    EXPECT_STREQ(DirectoryPtr(DllGetDirectory(L"%windir%", 0))->getPath(), L"%windir%");
    for (const wchar_t* folder : {L"%programfiles%", L"%programdata%", L"%appdata%", L"%localappdata%",
                                  L"%temp%", L"%userprofile%", L"%desktop%", L"%documents%"}) {
        const DirectoryPtr directory(DllGetDirectory(folder, 1));
        EXPECT_NE(directory->exists(), 0) << std::wstring(directory->getPath()).c_str();
        EXPECT_NE(std::wstring(directory->getPath()).back(), L'\\');
    }
    EXPECT_EQ(std::wstring(DirectoryPtr(DllGetDirectory(L"%user_temp%", 1))->getPath()),
              DirectoryPtr(DllGetDirectory(L"%localappdata%", 1))->getPath() + std::wstring(L"\\Temp"));
    wchar_t user[64];
    DWORD length = 64;
    GetUserNameW(user, &length);
    EXPECT_STREQ(DirectoryPtr(DllGetDirectory(L"%username%", 1))->getPath(), user);

    // A root keeps its backslash, and what follows does not double it.
    wchar_t before[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"TMP", before, MAX_PATH);
    const struct
    {
        const wchar_t* temporary;
        const wchar_t* path;
        const wchar_t* expanded;
    } roots[] = {
        {L"C:\\", L"%temp%", L"C:\\"},
        {L"C:\\", L"%temp%\\x", L"C:\\x"},
        {L"C:\\", L"%temp%/x", L"C:\\x"},
        {L"C:\\", L"%temp%x", L"C:\\x"},
        {L"C:\\windows\\", L"%temp%", L"C:\\windows"},
        {L"C:\\windows\\", L"%temp%x", L"C:\\windowsx"},
    };
    for (const auto& row : roots) {
        SetEnvironmentVariableW(L"TMP", row.temporary);
        EXPECT_STREQ(DirectoryPtr(DllGetDirectory(row.path, 1))->getPath(), row.expanded);
    }
    SetEnvironmentVariableW(L"TMP", before);
    for (const std::wstring folder : {L"C:\\", L"\\\\server\\share\\", L"\\\\?\\Volume{1}\\"}) {
        CountedImport<"GetModuleFileNameW", decltype(&GetModuleFileNameW)> names(sysmaintModule());
        names.setHook([&](auto, HMODULE, LPWSTR name, DWORD) {
            wcscpy(name, (folder + L"program.exe").c_str());
            return static_cast<DWORD>(folder.size() + 11);
        });
        EXPECT_EQ(DirectoryPtr(DllGetDirectory(L"%current%", 1))->getPath(), folder);
        EXPECT_EQ(DirectoryPtr(DllGetDirectory(L"%current%\\x", 1))->getPath(), folder + L"x");
    }

    // The expander itself: what it asks for is what it needs, and a buffer that is too small stays as it is.
    IPathValidatorW& expander = *DllGetPathValidatorW();
    wchar_t buffer[64] = L"%windir%\\x";
    unsigned long needed = 0;
    EXPECT_EQ(expander.validate(buffer, 0, &needed), ERROR_MORE_DATA);
    EXPECT_EQ(needed, 12U);
    EXPECT_EQ(expander.validate(buffer, 12, nullptr), ERROR_MORE_DATA);
    EXPECT_STREQ(buffer, L"%windir%\\x");
    EXPECT_EQ(expander.validate(buffer, 13, nullptr), ERROR_SUCCESS);
    EXPECT_STREQ(buffer, L"C:\\windows\\x");
    EXPECT_EQ(expander.validate(buffer, 64, &needed), ERROR_NOT_FOUND);
    EXPECT_EQ(expander.validate(nullptr, 64, &needed), ERROR_INVALID_PARAMETER);
}
