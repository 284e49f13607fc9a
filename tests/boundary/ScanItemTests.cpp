#include <gtest/gtest.h>

#include <memory>

#include "support/ImportReplacement.h"
#include "support/Scan.h"
#include "support/Threads.h"

namespace {
using FilePtr = std::unique_ptr<IFile>;
using DirectoryPtr = std::unique_ptr<IDirectory>;

FilePtr fileAt(const std::wstring& path)
{
    return FilePtr(DllGetFile(path.c_str(), 0));
}

DirectoryPtr folderAt(const std::wstring& path)
{
    return DirectoryPtr(DllGetDirectory(path.c_str(), 0));
}

std::wstring expanded(const std::wstring& path)
{
    return DirectoryPtr(DllGetDirectory(path.c_str(), 1))->getPath();
}

std::string content(IFile& file)
{
    unsigned long long size = 0;
    const void* data = file.getData(size);
    return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
}

template <ImportName Name, class Function, class Result, class Operation>
void expectCodeOfFailing(Result result, DWORD code, Operation&& operation)
{
    CountedImport<Name, Function> calls(sysmaintModule());
    calls.failCall(1, result, code);
    EXPECT_EQ(codeOf(operation), code) << Name.text;
}
} // namespace

TEST(ScanItems, FilesAreMadeReadAndDeletedUnderAnyName)
{
    const std::wstring folder = scratchFolder();
    std::wstring deep = folder;
    for (int level = 0; level < 5; ++level) {
        deep += L"\\" + std::wstring(120, static_cast<wchar_t>(L'a' + level));
        EXPECT_EQ(folderAt(deep)->exists(), 0);
        folderAt(deep)->create();
        EXPECT_NE(folderAt(deep)->exists(), 0);
        EXPECT_EQ(codeOf([&] { folderAt(deep)->create(); }), ERROR_ALREADY_EXISTS);
    }
    // Names that Win32 by itself takes for other names, beside the file that they would be taken for.
    const std::wstring names[] = {deep + L"\\far down",  folder + L"\\report", folder + L"\\report.",
                                  folder + L"\\report ", folder + L"\\nul",    folder + L"\\COM1.txt",
                                  folder + L"/aux"};
    const auto dataOf = [](const std::wstring& name) { return std::string(name.begin(), name.end()); };
    for (const std::wstring& name : names) {
        const FilePtr file = fileAt(name);
        EXPECT_EQ(file->exists(), 0) << dataOf(name);
        file->setData(dataOf(name).data(), name.size());
        file->create();
        EXPECT_EQ(file->getSize(), name.size());
    }
    for (const std::wstring& name : names) {
        const FilePtr file = fileAt(name);
        EXPECT_EQ(file->getPath(), name) << "the text stays as it was given";
        EXPECT_NE(file->exists(), 0);
        EXPECT_EQ(content(*file), dataOf(name));
    }
    fileAt(names[2])->deleteItem();
    EXPECT_FALSE(stands(names[2]));
    EXPECT_TRUE(stands(names[1])) << "the wrong file was deleted";
    EXPECT_TRUE(stands(names[3]));
    EXPECT_EQ(codeOf([&] { fileAt(names[2])->deleteItem(); }), ERROR_FILE_NOT_FOUND);

    EXPECT_EQ(codeOf([&] { folderAt(deep)->deleteItem(); }), ERROR_DIR_NOT_EMPTY);
    fileAt(names[0])->deleteItem();
    folderAt(deep)->deleteItem();
    EXPECT_FALSE(stands(deep));
    for (const std::wstring& there :
         std::initializer_list<std::wstring>{folder + L"\\", L"C:\\", L".", L"..\\"})
        EXPECT_NE(folderAt(there)->exists(), 0);
    EXPECT_EQ(folderAt(L"Q:\\")->exists(), 0);
}

TEST(ScanItems, DataIsReadOnceAndAMissingFileIsLeftEmpty)
{
    const std::wstring path = scratchFolder() + L"\\data";
    const FilePtr missing = fileAt(path);
    EXPECT_EQ(content(*missing), "");
    EXPECT_TRUE(stands(path));

    const FilePtr writer = fileAt(path);
    writer->setData("12345", 5);
    writer->create();
    CountedImport<"ReadFile", decltype(&ReadFile)> reads(sysmaintModule());
    const FilePtr reader = fileAt(path);
    onThreadsAtOnce(8, [&](int) { EXPECT_EQ(content(*reader), "12345"); });
    EXPECT_EQ(reads.calls(), 1) << "all that ask at once get one reading";
    EXPECT_EQ(content(*missing), "") << "what was read is kept";
    EXPECT_EQ(codeOf([&] { reader->setData(nullptr, 5); }), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(codeOf([&] { reader->setData("abc", ~0ULL); }), ERROR_NOT_ENOUGH_MEMORY) << "a false length";
    EXPECT_EQ(content(*reader), "12345") << "a refused change changes nothing";
    EXPECT_EQ(reads.calls(), 1);
}

// Every system call of the file operations fails in turn; the code arrives and no handle stays open.
TEST(ScanItems, FailingSystemCalls)
{
    const std::wstring path = scratchFolder() + L"\\file";
    const DWORD handles = processHandleCount();
    const FilePtr file = fileAt(path);
    file->setData("abc", 3);
    const auto create = [&] { file->create(); };
    using Create = HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
    expectCodeOfFailing<"CreateFileW", Create>(INVALID_HANDLE_VALUE, ERROR_SHARING_VIOLATION, create);
    expectCodeOfFailing<"WriteFile", decltype(&WriteFile)>(FALSE, ERROR_DISK_FULL, create);
    {
        // A system that takes less than it was given is asked again.
        CountedImport<"WriteFile", decltype(&WriteFile)> writes(sysmaintModule());
        writes.setHook([](auto original, HANDLE target, LPCVOID data, DWORD size, auto... rest) {
            return original(target, data, size > 1 ? 1 : size, rest...);
        });
        create();
    }
    const FilePtr reader = fileAt(path);
    const auto read = [&] { content(*reader); };
    expectCodeOfFailing<"CreateFileW", Create>(INVALID_HANDLE_VALUE, ERROR_TOO_MANY_OPEN_FILES, read);
    expectCodeOfFailing<"ReadFile", decltype(&ReadFile)>(FALSE, ERROR_CRC, read);
    EXPECT_EQ(content(*reader), "abc") << "a failure is not kept as the content";
    expectCodeOfFailing<"FindFirstFileW", decltype(&FindFirstFileW)>(
        INVALID_HANDLE_VALUE, ERROR_NOT_READY, [&] { static_cast<void>(file->exists()); });
    expectCodeOfFailing<"DeleteFileW", decltype(&DeleteFileW)>(FALSE, ERROR_WRITE_PROTECT,
                                                               [&] { file->deleteItem(); });
    EXPECT_TRUE(stands(path));
    EXPECT_EQ(processHandleCount(), handles);
}

TEST(ScanItems, StreamsHoldWhatTheCodeSays)
{
    const FilePtr file = fileAt(L"C:\\x");
    file->setData("ab", 2);
    const std::string all("\2\0\0\0"                           // the type
                          "\12\0\0\0\0\0\0\0C\0:\0\\\0x\0\0\0" // the path
                          "\1\0\0\0\2\0\0\0\0\0\0\0ab",
                          36); // the data
    const std::string fields = all.substr(22);
    const std::pair<unsigned long, std::string> rows[] = {{kStateAll, all},
                                                          {kStatePath, all.substr(4)},
                                                          {kStateType, all.substr(0, 4) + fields},
                                                          {kStateNone, fields}};
    for (const auto& [code, bytes] : rows) {
        MemoryOutputByteStream stream;
        file->dump(code, stream);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(stream.getData()), stream.getSize()), bytes);
    }
    const auto load = [](unsigned long code, const std::string& bytes) {
        MemoryInputByteStream stream(bytes.data(), bytes.size());
        return FilePtr(DllGetFile(code, stream));
    };
    const FilePtr loaded = load(kStateAll, all);
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(content(*loaded), "ab");
    // Without its bit the path stays what it was.
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
    const auto make = [&](int kind) {
        return kind == 2 ? CreateFileW(L"kinds", path.c_str(), 0)
                         : CreateFilePath(L"kinds", path.c_str(), 0, kind);
    };
    for (int first = 0; first < 3; ++first)
        for (int second = 0; second < 3; ++second) {
            void* filed = make(first);
            void* other = make(second);
            EXPECT_EQ(other, first == second ? filed : INVALID_HANDLE_VALUE);
            EXPECT_TRUE(first == second || GetLastError() == ERROR_ALREADY_EXISTS);
            CloseScanItem(filed);
            CloseScanItem(other);
        }
    const SharedPtr<ScanItem> item = itemOf(make(2));
    for (const wchar_t* text : {path.c_str(), L"C:\\x"})
        for (const int expand : {0, 1}) {
            item->setPath(text, 0);
            item->setPath(item->getPath(), expand);
            EXPECT_STREQ(item->getPath(), text);
        }
}

TEST(ScanItems, FolderMacros)
{
    wchar_t temporary[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"TMP", temporary, MAX_PATH);
    SetEnvironmentVariableW(L"SYSMAINT_VALUE", L"some %windir% value");
    wchar_t user[64];
    DWORD length = 64;
    GetUserNameW(user, &length);
    for (const wchar_t* folder : {L"%programfiles%", L"%programdata%", L"%appdata%", L"%localappdata%",
                                  L"%temp%", L"%userprofile%", L"%desktop%", L"%documents%"}) {
        EXPECT_NE(folderAt(expanded(folder))->exists(), 0) << expanded(folder).c_str();
        EXPECT_NE(expanded(folder).back(), L'\\');
    }
    SetEnvironmentVariableW(L"TMP", L"C:\\");
    const std::pair<std::wstring, std::wstring> rows[] = {
        {L"C:\\plain", L"C:\\plain"},
        {L"%windir%\\x", L"C:\\windows\\x"},
        {L"%WinDir%", L"C:\\windows"},
        {L"%windir%;%SYSTEM%;%windir%", L"C:\\windows;C:\\windows\\system32;C:\\windows"},
        {L"%username%", user},
        {L"%user_temp%", expanded(L"%localappdata%") + L"\\Temp"},
        {L"%sysmaint_value%!", L"some %windir% value!"}, // values are not expanded again
        {L"%no such macro%\\%windir%", L"%no such macro%\\C:\\windows"},
        {L"100%windir%", L"100C:\\windows"},
        {L"100%%windir%%", L"100%C:\\windows%"},
        {L"%no%windir%", L"%noC:\\windows"}, // the sign that ends an unknown name may open a known one
        {L"%", L"%"},
        {L"%%", L"%%"},
        {L"", L""},
        {L"%temp%", L"C:\\"}, // a root keeps its backslash, and what follows does not double it
        {L"%temp%\\x", L"C:\\x"},
        {L"%temp%/x", L"C:\\x"},
        {L"%temp%x", L"C:\\x"},
    };
    for (const auto& [path, result] : rows)
        EXPECT_EQ(expanded(path), result);
    EXPECT_STREQ(folderAt(L"%windir%")->getPath(), L"%windir%");
    SetEnvironmentVariableW(L"TMP", L"C:\\windows\\");
    EXPECT_EQ(expanded(L"%temp%"), L"C:\\windows");
    EXPECT_EQ(expanded(L"%temp%x"), L"C:\\windowsx");
    SetEnvironmentVariableW(L"TMP", temporary);

    CountedImport<"GetModuleFileNameW", decltype(&GetModuleFileNameW)> names(sysmaintModule());
    for (const std::wstring folder :
         {L"C:\\", L"\\\\server\\share\\", L"\\\\?\\Volume{1}\\", L"C:\\programs"}) {
        const bool isRoot = folder.back() == L'\\';
        names.setHook([&](auto, HMODULE, LPWSTR name, DWORD) {
            wcscpy(name, (folder + (isRoot ? L"program.exe" : L"\\program.exe")).c_str());
            return static_cast<DWORD>(wcslen(name));
        });
        EXPECT_EQ(expanded(L"%current%"), folder);
        EXPECT_EQ(expanded(L"%current%\\x"), folder + (isRoot ? L"x" : L"\\x"));
    }
}

// What the expander asks for is what it needs, and a buffer that is too small stays as it is.
TEST(ScanItems, TheExpanderOfMacrosKeepsToItsBuffer)
{
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
