#include "RealWindowsTest.h"

#include "../host/Command.h"
#include "../host/Console.h"
#include "../host/ProtectedFolders.h"
#include "../host/ShadowCopies.h"
#include "core/win32/utils/logger/api.h"

TEST_F(RealWindows, WhatIsHeldForAMomentIsTriedAgainForASecond)
{
    DWORD code = 0;
    const auto isHeld = [&](auto original, LPCWSTR path) -> BOOL {
        return SetLastError(code), (left == 0 || left-- == 0) && original(path);
    };
    Deletions deletions(isHeld);
    Removals removals(isHeld);
    FreeSpaceQueries space(isFull);
    const auto wipeSpace = [this] { return wipe(kWipeFreeSpace, at(L""), kWipeZeros, 1, event.get()); };
    const auto makeLogger = []() -> unsigned long {
        void* logger = CreateLogger(L"held");
        const DWORD failure = GetLastError();
        return CloseLogger(logger) != 0 ? 0 : failure;
    };
    // The flags of the opens that fail, or 0: another call does; and whether a cancel ends the waiting.
    const std::tuple<std::string, DWORD, std::function<unsigned long()>, bool> rows[] = {
        {"file", kOpenToWipe, [&] { return wipeFile(); }, true},
        {"first look", 0x02200000, [&] { return wipeFile(); }, true},
        {"folder's first look", 0x02200000, [&] { return wipeFolder(); }, true},
        {"folder", 0, [&] { return wipeFolder(); }, true},
        {"filler", 0x00200002, wipeSpace, true},
        {"filler again", 0x00200080, wipeSpace, false},
        {"filler's name", 0, wipeSpace, false},
        {"file item", 0, [&] { return deleteItem(false); }, false},
        {"folder item", 0, [&] { return deleteItem(true); }, false},
        {"log", FILE_ATTRIBUTE_NORMAL, makeLogger, false}};
    for (const auto& [what, flags, run, canCancel] : rows)
        for (const DWORD each : {5, 32, 33, 145, 303, 31, 2, 3}) {
            if ((each == ERROR_DIR_NOT_EMPTY && !what.starts_with("folder")) || (each < 5 && what != "file"))
                continue;
            SCOPED_TRACE(testing::Message() << what << " with " << each);
            code = flags == 0 ? each : 0;
            expectPatience(run, flags, each, what == "log" ? ERROR_CAN_NOT_COMPLETE : each, canCancel);
        }
    prepare();
    writeBytes(at(L"tree\\there"), secret);
    EXPECT_EQ(deleteItem(true), ERROR_DIR_NOT_EMPTY);
    EXPECT_EQ(waited, 0U) << "nobody waits for a folder that holds something";
}

TEST_F(RealWindows, ANewTryLooksAtWhatItTriesAgain)
{
    // While it is waited for, somebody puts another file there.
    files.setHook(failing(INVALID_HANDLE_VALUE, ERROR_SHARING_VIOLATION, [this](auto... all) {
        const bool isFirst = std::get<5>(std::tuple(all...)) == kOpenToWipe && waited == 0;
        if (isFirst && MoveFileW(at(L"file").c_str(), at(L"aside").c_str()))
            writeBytes(at(L"file"), {1, 2, 3});
        return isFirst;
    }));
    EXPECT_EQ(wipeFile(), ERROR_FILE_INVALID);
    EXPECT_EQ(readBytes(at(L"file")), (Bytes{1, 2, 3}));
    EXPECT_TRUE(readBytes(at(L"aside")) == secret && takeBootList().empty());
}

TEST_F(RealWindows, ANewFileUnderTheNameStays)
{
    // It takes the name while the deletion waits.
    for (const bool folderItem : {false, true}) {
        prepare();
        const std::wstring name = at(folderItem ? L"tree" : L"file");
        const auto replace = [&](const wchar_t* suffix) {
            MoveFileW(name.c_str(), (name + suffix).c_str());
            folderItem ? void(CreateDirectoryW(name.c_str(), nullptr)) : writeBytes(name, {1, 2, 3});
        };
        const auto refuse = failing(FALSE, ERROR_SHARING_VIOLATION,
                                    [&](LPCWSTR) { return waited == 0 && (replace(L" old"), true); });
        sleeps.setHook([&](auto, DWORD pause) { waited += pause, replace(L" next"); });
        Deletions deletions(refuse);
        Removals removals(refuse);
        EXPECT_EQ(deleteItem(folderItem), DWORD{ERROR_FILE_INVALID});
        EXPECT_TRUE(isThere(name));
    }
    // It takes the name after the deletion, and the file system gives it the number of the old one.
    sleeps.setHook([](auto, DWORD) {});
    prepare();
    BY_HANDLE_FILE_INFORMATION old{};
    Looks looks(after([&](BOOL, HANDLE, auto* information) {
        old = looks.calls() == 1 ? *information : old;
        information->nFileIndexHigh = old.nFileIndexHigh, information->nFileIndexLow = old.nFileIndexLow;
    }));
    Attributes attributes([&](auto original, LPCWSTR path) {
        if (!isThere(at(L"file")))
            writeBytes(at(L"file"), {7});
        return original(path);
    });
    EXPECT_EQ(wipeFile(), ERROR_FILE_INVALID);
    EXPECT_EQ(readBytes(at(L"file")), Bytes{7});
    EXPECT_TRUE(takeBootList().empty() && wiper->getNeedsReboot() == 0U);
}

TEST_F(RealWindows, NothingIsCalledGoneWhoseNameIsStillThere)
{
    // Open elsewhere, but not blocking anybody from opening or deleting it: the name stays until it is
    // closed.
    const std::pair<const wchar_t*, std::function<unsigned long()>> rows[] = {
        {L"file", [&] { return wipeFile(); }},
        {L"tree", [&] { return wipeFolder(); }},
        {L"file", [&] { return deleteItem(false); }},
        {L"tree", [&] { return deleteItem(true); }}};
    // Nobody can open it after the deletion.
    bool isMarked = false;
    const auto mark = before([&](auto...) { isMarked = true; });
    Deletions deletions(mark);
    Removals removals(mark);
    Settings settings([&](auto set, HANDLE file, auto what, LPVOID data, DWORD size) -> BOOL {
        isMarked = isMarked || static_cast<int>(what) == 21;
        return static_cast<int>(what) != 21 && set(file, what, data, size);
    });
    files.setHook(failing(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED, [&](auto...) { return isMarked; }));
    for (const auto& [name, run] : rows)
        for (const bool forAMoment : {false, true}) {
            SCOPED_TRACE(testing::Message() << &name - &rows[0].first << forAMoment);
            prepare();
            isMarked = false;
            Win32Handle holder(::CreateFileW(at(name).c_str(), FILE_READ_ATTRIBUTES, 7, nullptr,
                                             OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
            sleeps.setHook([&](auto, DWORD pause) {
                waited += pause;
                if (forAMoment)
                    holder.reset();
            });
            EXPECT_EQ(run(), forAMoment ? 0UL : 303UL);
            EXPECT_EQ(waited > 900, !forAMoment);
            holder.reset();
            isMarked = false;
            EXPECT_FALSE(isThere(at(name)));
            EXPECT_TRUE(takeBootList().empty()) << "it goes by itself, and the next of that name is another";
        }
}

TEST_F(RealWindows, ASystemThatDeletesThePosixWayIsNotAskedAgain)
{
    Attributes looks;
    Settings settings([](auto set, HANDLE file, auto what, LPVOID data, DWORD size) -> BOOL {
        if (static_cast<int>(what) != 21)
            return set(file, what, data, size);
        EXPECT_EQ(*static_cast<DWORD*>(data), 3U);
        return TRUE;
    });
    EXPECT_EQ(wipeFile(), 0);
    EXPECT_EQ(looks.calls(), 1); // before
}

TEST_F(RealWindows, FilesOfWhichOneIsNotTheMasterAreOpenedWithLess)
{
    prepare();
    std::vector<DWORD> asked;
    DWORD refused = GENERIC_ALL;
    files.setHook(failing(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED, [&](auto... all) {
        const DWORD access = std::get<1>(std::tuple(all...)), flags = std::get<5>(std::tuple(all...));
        if ((flags & 0x04200000) == 0 || access == FILE_READ_ATTRIBUTES)
            return false;
        asked.push_back(access);
        return (access & refused) != 0;
    }));
    FreeSpaceQueries space(isFull);
    constexpr DWORD kLess = GENERIC_READ | GENERIC_WRITE | DELETE;
    EXPECT_TRUE(wipeFile() == 0 && !isThere(at(L"file")) && wipe(kWipeFreeSpace, at(L"")) == 0);
    EXPECT_EQ(asked, (std::vector<DWORD>{GENERIC_ALL, kLess, GENERIC_ALL, kLess, GENERIC_ALL, kLess}));
    EXPECT_TRUE(takeBootList().empty());
    prepare();
    refused = GENERIC_ALL | GENERIC_WRITE;
    EXPECT_TRUE(wipeFile() == ERROR_ACCESS_DENIED && readBytes(at(L"file")) == secret);
}

TEST_F(RealWindows, HolesAreLeft)
{
    const Attributes marked(markedBy(FILE_ATTRIBUTE_SPARSE_FILE));
    using Parts = std::vector<std::pair<std::uint64_t, std::uint64_t>>;
    Parts written;
    Writes writes(before(
        [&](HANDLE file, LPCVOID, DWORD size, auto...) { written.emplace_back(positionOf(file), size); }));
    // Two parts between three holes; none where the system does not tell.
    const Parts parts{{65536, 100000}, {3 * kChunk, kChunk + 5}};
    bool tells = true;
    Controls controls(
        [&](auto, HANDLE, DWORD code, LPVOID asked, DWORD, LPVOID result, DWORD, LPDWORD size, auto) -> BOOL {
            EXPECT_EQ(code, DWORD{FSCTL_QUERY_ALLOCATED_RANGES});
            const auto from = static_cast<FILE_ALLOCATED_RANGE_BUFFER*>(asked)->FileOffset.QuadPart;
            auto* range = static_cast<FILE_ALLOCATED_RANGE_BUFFER*>(result);
            const auto next = std::ranges::find_if(
                parts, [&](auto& part) { return LONGLONG(part.first + part.second) > from; });
            const bool isPart = tells && next != parts.end();
            if (isPart)
                *range = {{.QuadPart = LONGLONG(next->first)}, {.QuadPart = LONGLONG(next->second)}};
            *size = isPart ? sizeof *range : 0;
            SetLastError(tells ? ERROR_MORE_DATA : ERROR_INVALID_FUNCTION);
            return tells && next != parts.begin();
        });
    const std::size_t size = 5 * kChunk;
    for (const bool isTold : {true, false}) {
        tells = isTold, total = 2 * size, written.clear();
        writeBytes(at(L"file"), Bytes(size, 0xE5));
        EXPECT_EQ(wipe(kWipeFile, at(L"file"), kWipeZeros, 2), 0);
        Parts expected{{65536, 100000}, {3 * kChunk, kChunk}, {4 * kChunk, 5}};
        if (!isTold)
            for (expected.clear(); expected.size() < 5;)
                expected.emplace_back(expected.size() * kChunk, kChunk);
        const Parts once = expected;
        expected.insert(expected.end(), once.begin(), once.end());
        EXPECT_EQ(written, expected);
        EXPECT_EQ(progress.total, isTold ? 2 * (kChunk + 100005) : 2 * size);
        EXPECT_EQ(progress.done, progress.total);
    }
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(RealWindows, WhatIsInTheCloudIsNotFetchedUnlessThatIsAskedFor)
{
    for (const DWORD elsewhere : {0x00040000, 0x00400000}) {
        const Attributes marked(markedBy(elsewhere));
        prepare();
        files.reset();
        EXPECT_EQ(wipeFile(), ERROR_FILE_OFFLINE);
        EXPECT_EQ(files.calls(), 1); // as itself
        EXPECT_TRUE(readBytes(at(L"file")) == secret && wiper->getNeedsReboot() == 0U);
        EXPECT_TRUE(wipeFile(kWipeZeros | kWipeCloudFiles) == 0 && !isThere(at(L"file")));
    }
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(RealWindows, HiddenFilesAreMadeAnewAndReadOnlyOnesRefuse)
{
    constexpr DWORD kHidden = FILE_ATTRIBUTE_HIDDEN, kSystem = FILE_ATTRIBUTE_SYSTEM;
    bool refusesAlways = false;
    files.setHook(failing(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED, [&](LPCWSTR name, auto... rest) {
        return std::get<3>(std::tuple(rest...)) == CREATE_ALWAYS &&
               (refusesAlways || (GetFileAttributesW(name) & (kHidden | kSystem)) != 0);
    }));
    Replaced<"SetFileAttributesW", decltype(&SetFileAttributesW)> marks;
    const std::wstring path = at(L"file");
    for (const auto& [attributes, always, code, changes] : // of the attributes
         {std::tuple(kHidden, false, 0UL, 1),
          {kSystem, false, 0, 1},
          {kHidden, true, 5, 2},
          {kHidden | FILE_ATTRIBUTE_READONLY, false, 5, 0},
          {FILE_ATTRIBUTE_NORMAL, true, 5, 0}}) {
        writeBytes(path, secret);
        SetFileAttributesW(path.c_str(), attributes);
        const DWORD before = GetFileAttributesW(path.c_str());
        refusesAlways = always;
        marks.reset();
        EXPECT_EQ(codeOf([&] { fileAt(path)->create(); }), code) << attributes;
        EXPECT_EQ(marks.calls(), changes) << attributes;
        EXPECT_EQ(readBytes(path).size(), code == 0 ? 0 : secret.size());
        EXPECT_TRUE(code == 0 || GetFileAttributesW(path.c_str()) == before) << attributes;
        SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    }
}

TEST_F(RealWindows, OlderSystemsLoadTheirLibrariesByTheWholePath)
{
    std::vector<std::wstring> asked;
    Replaced<"LoadLibraryExW", decltype(&LoadLibraryExW)> loads(
        [&](auto load, LPCWSTR name, HANDLE file, DWORD flags) -> HMODULE {
            asked.emplace_back(name);
            SetLastError(ERROR_INVALID_PARAMETER);
            return flags == LOAD_LIBRARY_SEARCH_SYSTEM32 ? nullptr : load(name, file, flags);
        });
    EXPECT_EQ(wipeFile(), 0);
    wchar_t folder[MAX_PATH];
    GetSystemDirectoryW(folder, MAX_PATH);
    EXPECT_EQ(asked, (std::vector<std::wstring>{L"ntdll.dll", std::wstring(folder) + L"\\ntdll.dll"}));
}

TEST_F(RealWindows, NoMoreIsTakenForWrittenThanWasGiven)
{
    Writes writes(after([](BOOL, HANDLE, LPCVOID, DWORD, LPDWORD put, auto*) { *put *= 2; }));
    EXPECT_EQ(wipeFile(), 0);
    const FilePtr item = fileAt(at(L"file"));
    item->setData("abc", 3);
    EXPECT_EQ(codeOf([&] { item->create(); }), 0U);
    EXPECT_EQ(readBytes(at(L"file")), (Bytes{'a', 'b', 'c'}));
}

TEST(ShadowCopies, AreToldByTheVolumesNamesOfThem)
{
    const HMODULE own = GetModuleHandleW(nullptr); // the console program's question is compiled in here
    CountedImport<"DeviceIoControl", decltype(&DeviceIoControl)> control(own);
    CountedImport<"CreateFileW", Opens::Original> opens(own);
    opens.setHook(before([](LPCWSTR name, DWORD, DWORD share, auto...) {
        EXPECT_TRUE(std::wcscmp(name, L"\\\\.\\C:") != 0 || share == (FILE_SHARE_READ | FILE_SHARE_WRITE));
    }));
    ULONG names = 0;
    DWORD given = 0, failure = 0;
    control.setHook(
        [&](auto, HANDLE, DWORD question, LPVOID, DWORD, LPVOID result, DWORD, LPDWORD returned, auto) {
            EXPECT_EQ(question, 0x534018U);
            *static_cast<ULONG*>(result) = names, *returned = given;
            return SetLastError(failure), failure == 0;
        });
    for (const auto& [bytes, size, code, has] : {std::tuple(2U, 8U, 0L, false),
                                                 {100, 8, 0, true},
                                                 {100, 8, ERROR_MORE_DATA, true},
                                                 {100, 0, ERROR_ACCESS_DENIED, false}}) {
        names = bytes, given = size, failure = code;
        EXPECT_EQ(hasShadowCopies(L"C:\\"), has) << bytes << " " << code;
    }
    EXPECT_EQ(opens.calls(), 4);
}

TEST(ProtectedFolders, AreThoseOfTheSystemToo)
{
    const HMODULE own = GetModuleHandleW(nullptr); // as above
    wchar_t windows[MAX_PATH];
    GetSystemWindowsDirectoryW(windows, MAX_PATH);
    CountedImport<"GetWindowsDirectoryW", decltype(&GetWindowsDirectoryW)> folder(own);
    folder.setHook([](auto, LPWSTR path, UINT) -> UINT { // as on a Remote Desktop host
        std::wcscpy(path, L"C:\\users\\somebody\\WINDOWS");
        return static_cast<UINT>(std::wcslen(path));
    });
    const std::wstring real = windows;
    for (const std::wstring& name : {real, real + L"\\win.ini", real + L"\\system32\\none\\x",
                                     std::wstring(L"C:\\users\\somebody\\WINDOWS\\x")})
        EXPECT_THROW(requireUnprotected(WipeTarget(name)), UsageError) << name;
    EXPECT_NO_THROW(requireUnprotected(WipeTarget(L"C:\\none\\x")));
}

TEST(Output, GoesToConsolesAsCharactersAndElsewhereAsBytes)
{
    const HMODULE own = GetModuleHandleW(nullptr); // as above
    bool isConsole = false;
    CountedImport<"GetConsoleMode", decltype(&GetConsoleMode)> modes(own);
    modes.setHook([&](auto...) -> BOOL { return isConsole; });
    std::vector<std::string> written;
    const std::pair<BOOL, int> complete{TRUE, 2}, partial{TRUE, 1}, nothing{TRUE, 0}, gone{FALSE, 0};
    std::pair<BOOL, int> answer;
    const auto take = [&](std::size_t unit) {
        return [&, unit](auto, HANDLE, LPCVOID data, DWORD count, LPDWORD taken, auto...) -> BOOL {
            *taken = answer == complete ? 2 * count : answer == partial ? (count + 1) / 2 : 0;
            SetLastError(ERROR_BROKEN_PIPE);
            written.emplace_back(static_cast<const char*>(data), std::min(*taken, count) * unit);
            return answer.first;
        };
    };
    CountedImport<"WriteFile", decltype(&WriteFile)> files(own);
    CountedImport<"WriteConsoleW", BOOL(WINAPI*)(HANDLE, const void*, DWORD, LPDWORD, LPVOID)> consoles(own);
    files.setHook(take(1)), consoles.setHook(take(sizeof(wchar_t)));
    const std::wstring text = std::wstring(8191, L'a') + L"\xD83D\xDE00" + std::wstring(9000, L'\u00E9');
    for (const bool toConsole : {true, false})
        for (const auto& how : {complete, partial, nothing, gone}) {
            isConsole = toConsole, answer = how, written.clear();
            Output output(STD_OUTPUT_HANDLE);
            output.write(text);
            output.flush();
            std::string all, expected(reinterpret_cast<const char*>(text.data()), text.size() * 2);
            for (const std::string& part : written)
                all += part;
            if (!toConsole)
                expected = std::string(8191, 'a') + "\xF0\x9F\x98\x80";
            for (int i = 0; !toConsole && i < 9000; ++i)
                expected += "\xC3\xA9";
            EXPECT_EQ(output.isTerminal(), toConsole);
            EXPECT_EQ(output.isOpen(), how == complete || how == partial);
            EXPECT_TRUE(output.isOpen() ? all == expected : all.empty()) << all.size();
            EXPECT_EQ(output.failure(), output.isOpen() ? 0U
                                        : how == gone   ? ERROR_BROKEN_PIPE
                                                        : ERROR_WRITE_FAULT);
            EXPECT_TRUE(!toConsole || how != complete || written[0].size() == 8191 * sizeof(wchar_t));
        }
}
