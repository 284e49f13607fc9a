#include "boundary/RegistryTest.h"

namespace {
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

} // namespace

TEST(ScanItems, FilesAndFoldersAreMadeReadAndDeleted)
{
    const std::wstring folder = scratchFolder();
    std::wstring deep = folder;
    for (const wchar_t name : {L'a', L'b', L'c', L'd', L'e'}) {
        deep += L"\\" + std::wstring(120, name);
        EXPECT_EQ(folderAt(deep)->exists(), 0);
        folderAt(deep)->create();
        EXPECT_NE(folderAt(deep)->exists(), 0);
        EXPECT_EQ(codeOf([&] { folderAt(deep)->create(); }), ERROR_ALREADY_EXISTS);
    }
    for (const std::wstring& name : {deep + L"\\far down", folder + L"\\COM1.txt", folder + L"/aux"}) {
        const FilePtr file = fileAt(name);
        EXPECT_EQ(file->exists(), 0);
        file->setData("12345", 5);
        file->create();
        EXPECT_EQ(file->getPath(), name) << "the text stays as it was given";
        EXPECT_TRUE(fileAt(name)->getSize() == 5U && content(*fileAt(name)) == "12345");
        EXPECT_EQ(codeOf([&] { folderAt(folder)->deleteItem(); }), ERROR_DIR_NOT_EMPTY);
        file->deleteItem();
        EXPECT_EQ(codeOf([&] { file->deleteItem(); }), ERROR_FILE_NOT_FOUND);
    }
    folderAt(deep)->deleteItem();
    EXPECT_FALSE(stands(deep));
    deep = folder + L"\\";
    for (const wchar_t* there : {deep.c_str(), L"C:\\", L".", L"..\\"})
        EXPECT_NE(folderAt(there)->exists(), 0);
    EXPECT_EQ(folderAt(L"Q:\\")->exists(), 0);
}

TEST(ScanItems, DataIsReadOnceAndAMissingFileIsLeftEmpty)
{
    const std::wstring path = scratchFolder() + L"\\data";
    const FilePtr missing = fileAt(path);
    EXPECT_TRUE(content(*missing).empty() && stands(path));

    const FilePtr writer = fileAt(path);
    writer->setData("12345", 5);
    {
        // A partial write is continued.
        Replaced<"WriteFile", decltype(&WriteFile)> writes(
            [](auto original, HANDLE target, LPCVOID data, DWORD size, auto... rest) {
                return original(target, data, size > 1 ? 1 : size, rest...);
            });
        writer->create();
    }
    Replaced<"ReadFile", decltype(&ReadFile)> reads;
    const FilePtr reader = fileAt(path);
    onThreadsAtOnce(8, [&](int) { EXPECT_EQ(content(*reader), "12345"); });
    EXPECT_EQ(reads.calls(), 1) << "all that ask at once get one reading";
    EXPECT_EQ(content(*missing), "") << "what was read is kept";
    EXPECT_EQ(codeOf([&] { reader->setData(nullptr, 5); }), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(codeOf([&] { reader->setData("abc", ~0ULL); }), ERROR_NOT_ENOUGH_MEMORY) << "a false length";
    EXPECT_EQ(content(*reader), "12345") << "a refused change changes nothing";
    EXPECT_EQ(reads.calls(), 1);
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
    for (const auto& [code, bytes] : {std::pair(kStateAll, all),
                                      {kStatePath, all.substr(4)},
                                      {kStateType, all.substr(0, 4) + fields},
                                      {kStateNone, fields}})
        EXPECT_EQ(dumpOf(*file, code), bytes);
    const auto load = [](unsigned long code, const std::string& bytes) {
        MemoryInputByteStream stream(bytes.data(), bytes.size());
        return FilePtr(DllGetFile(code, stream));
    };
    const FilePtr loaded = load(kStateAll, all);
    EXPECT_EQ(content(*loaded), "ab");
    // Without its bit the path stays what it was.
    MemoryInputByteStream stream(fields.data(), fields.size());
    loaded->load(kStateNone, stream);
    EXPECT_STREQ(loaded->getPath(), L"C:\\x");
    EXPECT_STREQ(load(kStateNone, fields)->getPath(), L"");

    EXPECT_EQ(refusalOf(load(kStateAll, all.substr(0, all.size() - 1)).get()), ERROR_READ_FAULT);
    std::string other = all;
    other[0] = 1;
    EXPECT_EQ(refusalOf(load(kStateAll, other).get()), ERROR_INVALID_DATA) << "a folder is no file";
    MemoryInputByteStream folder(other.data(), 22);
    EXPECT_STREQ(DirectoryPtr(DllGetDirectory(kStateAll, folder))->getPath(), L"C:\\x");
}

TEST(ScanItems, HalfALoadChangesNothing)
{
    const FilePtr files[] = {fileAt(L"C:\\mine"), fileAt(L"C:\\theirs")};
    files[0]->setData("mine", 4);
    files[1]->setData("theirs", 6);
    const DirectoryPtr folders[] = {folderAt(L"C:\\mine"), folderAt(L"C:\\theirs")};
    const KeyPtr keys[] = {keyOf(L"mine"), keyOf(L"theirs", HKEY_LOCAL_MACHINE)};
    const ValuePtr values[] = {ValuePtr(DllGetRegistryValue(HKEY_CURRENT_USER, L"mine", L"v", L"text")),
                               ValuePtr(DllGetRegistryValue(HKEY_LOCAL_MACHINE, L"theirs", L"w", L"more"))};
    for (const unsigned long code : {kStateNone, kStateType, kStatePath, kStateAll}) {
        expectCutsChangeNothing(*files[0], *files[1], code);
        expectCutsChangeNothing(*folders[0], *folders[1], code);
        expectCutsChangeNothing(*keys[0], *keys[1], code);
        expectCutsChangeNothing(*values[0], *values[1], code);
    }
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
            EXPECT_EQ(refusalOf(other), first == second ? 0 : ERROR_ALREADY_EXISTS);
            EXPECT_EQ(other == filed, first == second);
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
        {L"%sysmaint_value%!", L"some %windir% value!"}, // values are not expanded recursively
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
        {L"%temp%x", L"C:\\x"}};
    for (const auto& [path, result] : rows)
        EXPECT_EQ(expanded(path), result);
    EXPECT_STREQ(folderAt(L"%windir%")->getPath(), L"%windir%");
    SetEnvironmentVariableW(L"TMP", L"C:\\windows\\");
    EXPECT_TRUE(expanded(L"%temp%") == L"C:\\windows" && expanded(L"%temp%x") == L"C:\\windowsx");
    SetEnvironmentVariableW(L"TMP", temporary);
}

TEST(ScanItems, ATemporaryFolderThatNothingNamesIsRefused)
{
    // Without a variable the system would name the user's profile or the Windows folder.
    wchar_t temporary[MAX_PATH] = L"", second[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"TMP", temporary, MAX_PATH);
    GetEnvironmentVariableW(L"TEMP", second, MAX_PATH);
    const std::tuple<const wchar_t*, const wchar_t*, unsigned long> unfit[] = {
        {nullptr, nullptr, ERROR_ENVVAR_NOT_FOUND}, {L"", L"", ERROR_ENVVAR_NOT_FOUND},
        {L".", L"C:\\windows", ERROR_BAD_PATHNAME}, {nullptr, L"\\", ERROR_BAD_PATHNAME},
        {L"C:", nullptr, ERROR_BAD_PATHNAME},       {L"C:x", nullptr, ERROR_BAD_PATHNAME}};
    for (const auto& [tmp, temp, code] : unfit) {
        SetEnvironmentVariableW(L"TMP", tmp);
        SetEnvironmentVariableW(L"TEMP", temp);
        EXPECT_EQ(refusalOf(DllGetDirectory(L"%temp%\\x", 1)), code);
    }
    SetEnvironmentVariableW(L"TEMP", second);
    SetEnvironmentVariableW(L"TMP", temporary);
}

TEST(ScanItems, TheCurrentFolderIsThePrograms)
{
    Replaced<"GetModuleFileNameW", decltype(&GetModuleFileNameW)> names;
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

// One byte of a stream, say a damaged one, must not make a path that of the folder or key above.
TEST(ScanItems, NoZeroCutsALoadedText)
{
    const auto expectRefused = [](auto&& state, char first) {
        std::string damaged = dumpOf(state, kStatePath);
        damaged.at(damaged.find(first)) = 0;
        MemoryInputByteStream stream(damaged.data(), damaged.size());
        EXPECT_EQ(codeOf([&] { state.load(kStatePath, stream); }), ERROR_READ_FAULT);
    };
    const FilePtr file = fileAt(L"C:\\a\\f");
    expectRefused(*file, '\\');
    expectRefused(*keyOf(L"C:\\a\\f"), '\\');
    expectRefused(*valueOf(L"key", L"C:\\a\\f"), '\\');
    expectRefused(*SharedPtr<IScanValidator>(DllGetScanValidator(L"*.tmp", L"*.tmp")), '*');
    EXPECT_STREQ(file->getPath(), L"C:\\a\\f");
}

// A request for an item by name returns the registered one, or none.
TEST(ScanItems, NoItemStandsForWhatItWasBefore)
{
    const std::wstring root = scratchFolder({L"\\a"});
    const std::wstring path = root + L"\\a\\f";
    void* handle = CreateFileW(L"filed", path.c_str(), 0);
    SharedPtr<ScanItem> item;
    ASSERT_EQ(GetScanItemByHandle(handle, item), ERROR_SUCCESS);
    item->setPath((root + L"\\other").c_str(), 0);
    EXPECT_EQ(refusalOf(CreateFileW(L"filed", path.c_str(), 0)), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(refusalOf(OpenScanItem(L"filed", path.c_str())), ERROR_NOT_FOUND);
    item->setPath(path.c_str(), 0);
    EXPECT_EQ(OpenScanItem(L"filed", path.c_str()), handle);
    EXPECT_EQ(CloseScanItem(handle) + CloseScanItem(handle), 2);

    // A root of an engine is listed as it was added.
    std::ofstream(std::filesystem::path(path)).put('x');
    Collector collector;
    const TestEngine engine(collector, L"filed");
    ASSERT_EQ(FSEngineAddPath(engine.handle, root.c_str(), 0), ERROR_SUCCESS);
    ASSERT_EQ(GetScanItemByHandle(handle = OpenScanItem(L"filed", root.c_str()), item), ERROR_SUCCESS);
    item->setPath((root + L"\\other").c_str(), 0);
    EXPECT_TRUE(engine.scan(root) == ERROR_SUCCESS && collector.paths.count(root + L"\\a\\f") == 1U);
    CloseScanItem(handle);
}
