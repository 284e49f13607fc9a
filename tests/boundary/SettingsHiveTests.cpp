#include "core/win32/registry/settingshive/api.h"

#include "support/Faults.h"
#include "support/Hives.h"
#include "support/Utilities.h"

using Moves = Replaced<"MoveFileExW", decltype(&MoveFileExW)>;

struct SettingsHiveTest : testing::Test
{
    ~SettingsHiveTest() override
    {
        close();
        std::filesystem::remove_all(folder);
    }
    void open(unsigned long flags = 0)
    {
        close();
        hive = CreateSettingsHive(file.c_str(), flags);
        ASSERT_NE(hive, INVALID_HANDLE_VALUE) << GetLastError();
    }
    /// The file as it is saved, before a change that is not.
    Bytes makeOld()
    {
        open();
        set(L"", L"which", L"old");
        EXPECT_EQ(save(), 0);
        set(L"", L"which", L"the new one");
        return readBytes(file);
    }
    [[nodiscard]] long save() const { return SettingsHiveSave(hive); }
    long set(const wchar_t* key, const wchar_t* value, const wchar_t* text)
    {
        return SettingsHiveSetText(hive, key, value, text);
    }
    void close() { CloseSettingsHive(std::exchange(hive, nullptr)); }
    [[nodiscard]] long long state() const { return asNumber(SettingsHiveGetState)(hive); }
    [[nodiscard]] std::wstring text(const wchar_t* key, const wchar_t* value) const
    {
        return asText(SettingsHiveGetText)(hive, key, value);
    }
    [[nodiscard]] long long number(const wchar_t* key, const wchar_t* value) const
    {
        return asNumber(SettingsHiveGetNumber32)(hive, key, value);
    }
    [[nodiscard]] std::wstring keys(const wchar_t* key) const
    {
        return listOf([&](auto... list) { return SettingsHiveEnumerateKeys(hive, key, list...); });
    }
    [[nodiscard]] std::wstring values(const wchar_t* key) const
    {
        return listOf([&](auto... list) { return SettingsHiveEnumerateValues(hive, key, list...); });
    }
    [[nodiscard]] std::wstring entries() const { return entriesOf(folder); }

    const std::wstring folder = scratchFolder();
    const std::wstring file = folder + L"\\settings.hive";
    void* hive = nullptr;
};

TEST_F(SettingsHiveTest, KeepsEverythingInItsFile)
{
    const Bytes large(100000, 7);
    open();
    EXPECT_EQ(state(), kSettingsNew);
    EXPECT_EQ(set(L"Window\\Main", L"Title", L"\u65E5\u672C"), 0);
    EXPECT_EQ(SettingsHiveSetNumber32(hive, L"window", L"Width", 0xFFFFFFFF), 0);
    EXPECT_EQ(SettingsHiveSetNumber64(hive, L"WINDOW", L"", 1ULL << 40U), 0);
    EXPECT_EQ(SettingsHiveSetTexts(hive, L"\u00C4rger", L"List", L"one\0two\0"), 0);
    EXPECT_EQ(SettingsHiveSetBytes(hive, L"", L"Large", large.data(), large.size()), 0);
    EXPECT_EQ(SettingsHiveSetValue(hive, L"", L"Odd", 0xABCDEF01, "xyz", 3), 0);
    EXPECT_EQ(SettingsHiveCreateKey(hive, L"a\\b\\c"), 0);
    for (int time = 0; time < 2; ++time) { // the second time from the file
        EXPECT_EQ(text(L"window\\MAIN", L"title"), L"\u65E5\u672C");
        EXPECT_EQ(number(L"Window", L"WIDTH"), 0xFFFFFFFF);
        EXPECT_EQ(asNumber(SettingsHiveGetNumber64)(hive, L"Window", L""), 1LL << 40U);
        const auto get = [&](auto... list) {
            return SettingsHiveGetTexts(hive, L"\u00E4RGER", L"list", list...);
        };
        EXPECT_EQ(listOf(get), L"one,two");
        Given<unsigned char> bytes;
        std::size_t size = 0;
        EXPECT_EQ(SettingsHiveGetBytes(hive, L"", L"large", &bytes, &size), 0);
        EXPECT_EQ(Bytes(bytes.get(), bytes.get() + size), large);
        Given<unsigned char> odd;
        unsigned long type = 0;
        EXPECT_EQ(SettingsHiveGetValue(hive, L"", L"odd", &type, &odd, &size), 0);
        EXPECT_EQ(std::string(odd.get(), odd.get() + size), "xyz");
        EXPECT_EQ(type, 0xABCDEF01);
        EXPECT_EQ((Texts{keys(L""), keys(L"A\\B"), values(L""), values(L"Window")}),
                  (Texts{L"a,Window,\u00C4rger", L"c", L"Large,Odd", L"Width"}));
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(state(), 0U);
        open(kSettingsMustExist);
    }
    void* const same = OpenSettingsHive(file.c_str());
    EXPECT_EQ(same, hive);
    EXPECT_NE(CloseSettingsHive(same), 0);
    EXPECT_EQ(SettingsHiveDeleteKey(hive, L"A"), 0);
    EXPECT_EQ(SettingsHiveDeleteValue(hive, L"", L"ODD"), 0);
    EXPECT_EQ(state(), kSettingsChanged);
    EXPECT_EQ(save(), 0);
    open(kSettingsReadOnly);
    EXPECT_EQ((Texts{keys(L""), values(L""), entries()}),
              (Texts{L"Window,\u00C4rger", L"Large", L"settings.hive "}));
}

TEST_F(SettingsHiveTest, RefusesWithACodeAndChangesNothing)
{
    const std::wstring longKey = L"new\\" + std::wstring(256, L'k');
    const std::wstring longValue(16384, L'v');
    open();
    set(L"key", L"text", L"x");
    SettingsHiveSetBytes(hive, L"key", L"bytes", "abc", 3);
    SettingsHiveSetValue(hive, L"key", L"short", REG_DWORD, "abc", 3);
    SettingsHiveSetValue(hive, L"key", L"half", REG_SZ, "abc", 3);
    for (const auto& [name, code] : {std::pair(L"text", -1630), {L"short", -13}, {L"none", -2}})
        EXPECT_EQ(number(L"key", name), code);
    EXPECT_EQ(number(L"none", L"text"), -2);
    EXPECT_EQ(text(L"key", L"bytes") + text(L"key", L"half") + keys(L"none"), L"code 1630code 13code 2");
    EXPECT_EQ(set(longKey.c_str(), L"v", L"x"), 206);
    EXPECT_EQ(set(L"new\\key", longValue.c_str(), L"x"), 206);
    EXPECT_EQ(set(L"new\\\\key", L"v", L"x"), 123);
    EXPECT_EQ(set(nullptr, L"v", L"x"), 87);
    for (const wchar_t* key : {L"new\\", L"\\new", L"\\"}) {
        EXPECT_EQ(SettingsHiveCreateKey(hive, key), 123);
        EXPECT_EQ(SettingsHiveDeleteKey(hive, key), 123);
        EXPECT_EQ(keys(key), L"code 123");
    }
    EXPECT_EQ(SettingsHiveDeleteKey(hive, L""), 50);
    EXPECT_EQ(SettingsHiveDeleteKey(hive, L"none"), 2);
    EXPECT_EQ(SettingsHiveDeleteValue(hive, L"key", L"none"), 2);
    EXPECT_EQ(SettingsHiveSave(nullptr), 6);
    EXPECT_EQ(keys(L""), L"key");
    EXPECT_EQ(save(), 0);
    open(kSettingsReadOnly);
    EXPECT_EQ(set(L"key", L"text", L"y"), 5);
    EXPECT_EQ(save(), 5);
    EXPECT_EQ(text(L"key", L"text"), L"x");

    const auto expectCode = [](const std::wstring& name, unsigned long flags, DWORD code) {
        EXPECT_EQ(CreateSettingsHive(name.c_str(), flags), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), code);
    };
    expectCode(L"", 0, 87);
    expectCode(folder + L"\\x", 4, 87);
    expectCode(folder + L"\\none", kSettingsMustExist, 2);
    expectCode(folder, 0, 5);
    for (const std::wstring& name : std::initializer_list<std::wstring>{
             L"NUL", folder + L"\\nul.hive", folder + L"\\COM1", LR"(\\.\NUL)", LR"(\\.\pipe\x)",
             LR"(\\.\C:)", LR"(\\server\PIPE\x)", folder + L"\\a:b", file + L":stream", folder + L"\\"})
        expectCode(name, 0, 161); // devices, pipes and streams
    EXPECT_EQ(entries(), L"settings.hive ");
    close();
    const Win32Handle held = openedFile(file, GENERIC_WRITE);
    expectCode(file, 0, 32); // what cannot be read is not empty
}

TEST_F(SettingsHiveTest, HasItsOldFileOrTheNewWhateverFails)
{
    const Bytes old = makeOld();
    const auto prepare = [&] {
        writeBytes(file, old);
        open();
        set(L"", L"which", L"the new one");
    };
    ASSERT_EQ(save(), 0);
    int failures = 0;
    failEachCall(
        prepare, [&] { return save(); },
        [&](const std::string& import, long result) {
            failures += result != 0 ? 1 : 0;
            EXPECT_TRUE(result == 0 || readBytes(file) == old) << import;
            open();
            EXPECT_EQ(text(L"", L"which"), result == 0 ? L"the new one" : L"old") << import;
            EXPECT_EQ(state(), 0U) << import;
            EXPECT_EQ(import == "DeleteFileW" ? L"settings.hive " : entries(), L"settings.hive ") << import;
        });
    EXPECT_GE(failures, 4); // look, make, write, flush
    Moves moves(1, FALSE, ERROR_IO_DEVICE);
    prepare();
    EXPECT_EQ(save(), ERROR_IO_DEVICE);
    EXPECT_EQ(readBytes(file), old);
    EXPECT_EQ(entries(), L"settings.hive ");
}

/// What others did to the file since it was read; 0: a save may replace it.
TEST_F(SettingsHiveTest, ReplacesOnlyTheFileThatItHasRead)
{
    const std::wstring other = folder + L"\\other";
    Bytes bytes;
    const std::pair<std::function<void()>, long> rows[] = {
        {[] {}, 0},
        {[&] { DeleteFileW(file.c_str()); }, 0},
        {[&] { writeBytes(file, Bytes(bytes.size() + 1, 'x')); }, 1006},
        {[&] {
             CopyFileW(file.c_str(), other.c_str(), FALSE) && MoveFileExW(other.c_str(), file.c_str(), 1);
         },
         1006},
        {[&] { // the same bytes, written again
             const FILETIME time{1, 1};
             SetFileTime(openedFile(file, GENERIC_WRITE).get(), nullptr, nullptr, &time);
         },
         1006},
        {[&] { SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY); }, 5}};
    int number = 0;
    for (const auto& [change, code] : rows) {
        SCOPED_TRACE(++number);
        for (const bool isNew : {true, false}) { // also where there was no file
            if (isNew != (number > 2 && number < 5))
                DeleteFileW(file.c_str());
            open();
            EXPECT_EQ(set(L"k", L"v", L"x"), 0);
            EXPECT_EQ(save(), 0);
            EXPECT_EQ(save(), 0) << "its own";
            bytes = readBytes(file);
            change();
            const Bytes changed = isThere(file) ? readBytes(file) : bytes;
            EXPECT_EQ(save(), code);
            EXPECT_EQ(readBytes(file), changed);
            EXPECT_EQ(entries(), L"settings.hive ");
            SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileW(file.c_str());
        }
    }
    open();
    writeBytes(file, Bytes(1, 'x'));
    EXPECT_EQ(save(), 1006) << "there was none";
    DeleteFileW(file.c_str());
    // Changed while the new file is written.
    Flushes flushes(before([&](auto) { writeBytes(file, Bytes(2, 'x')); }));
    EXPECT_EQ(save(), 1006);
    EXPECT_EQ(entries(), L"settings.hive ");
}

/// What others save while it waits for its turn is theirs, and nobody has a turn before it has ended its own.
TEST_F(SettingsHiveTest, SavesInItsTurn)
{
    makeOld();
    bool isChanged = false;
    HANDLE turn = nullptr;
    std::set<std::wstring> names;
    const Replaced<"CreateMutexExW", decltype(&CreateMutexExW)> mutexes(
        before([&](auto, LPCWSTR name, auto...) { names.insert(name); }));
    const Polls polls(before([&](HANDLE waited, DWORD milliseconds) {
        turn = milliseconds == 10000 ? waited : turn;
        if (isChanged && turn == waited)
            writeBytes(file, Bytes(3, 'x'));
    }));
    const Moves moves;
    const Replaced<"ReleaseMutex", decltype(&ReleaseMutex)> releases(
        before([&](HANDLE released) { EXPECT_TRUE(released != turn || moves.calls() == 1); }));
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(moves.calls(), 1);
    set(L"", L"which", L"another");
    isChanged = true;
    turn = nullptr;
    EXPECT_EQ(save(), 1006);
    EXPECT_EQ(readBytes(file), Bytes(3, 'x'));
    EXPECT_TRUE(names.size() == 1 && names.begin()->starts_with(L"Global\\")) << "for all processes";
}

TEST_F(SettingsHiveTest, DeletesOnlyWhatItsOwnEndedSavesLeft)
{
    open();
    const std::wstring own = L"." + std::to_wstring(GetCurrentProcessId()) + L"-7.tmp";
    const std::wstring kept[] = {own,        L".3-1.tmp.old", L".x-1.tmp",  L".3.tmp",
                                 L".3-.tmp", L".-1.tmp",      L"2.3-1.tmp", L".3-1x.tmp"};
    for (const std::wstring& end : kept)
        writeBytes(file + end, Bytes(1, 'x'));
    for (const wchar_t* end : {L".3-1.tmp", L".999999999-12.tmp"})
        writeBytes(file + end, Bytes(1, 'x')); // identifiers are multiples of four
    CreateDirectoryW((file + L".3-2.tmp").c_str(), nullptr);
    {
        const Replaced<"GetDriveTypeW", decltype(&GetDriveTypeW)> kinds(
            [](auto, LPCWSTR) -> UINT { return DRIVE_REMOTE; }); // the process may be another machine's
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 12);
    }
    set(L"", L"more", L"text");
    EXPECT_EQ(save(), 0);
    for (const std::wstring& end : kept)
        EXPECT_TRUE(isThere(file + end)) << utf8(end);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 10);
}

// A new file never replaces what somebody else has made while it was written, and a value that cannot be kept
// leaves nothing.
TEST_F(SettingsHiveTest, LoseAndKeepNothingWhenTheyFail)
{
    open();
    for (int i = 0; i < 80; ++i) // more are found by an index
        set(L"key", std::to_wstring(i).c_str(), L"x");
    {
        const Moves moves(before([&](auto...) { writeBytes(file, {1, 2, 3}); }));
        EXPECT_EQ(save(), ERROR_FILE_INVALID);
    }
    EXPECT_EQ(readBytes(file), (Bytes{1, 2, 3}));
    EXPECT_EQ(entries(), L"settings.hive ");
    DeleteFileW(file.c_str());
    EXPECT_EQ(save(), 0);

    const HeapWatch watch(sysmaintModule());
    const auto setNew = [&] { return set(L"key", L"new", L"a text that is longer than any name"); };
    long blocks = 0;
    for (int turn = 0; turn < 2; ++turn) { // first what is kept for the next value
        blocks = HeapWatch::liveBlocks();
        setNew();
        SettingsHiveDeleteValue(hive, L"key", L"new");
    }
    for (long failing = 1; failing == 1 || HeapWatch::hasFailed(); ++failing) {
        HeapWatch::arm(failing);
        const long code = setNew();
        HeapWatch::disarm();
        EXPECT_EQ(code, HeapWatch::hasFailed() ? 8 : 0);
        EXPECT_EQ(values(L"key").ends_with(L"new"), code == 0) << failing;
    }
    SettingsHiveDeleteValue(hive, L"key", L"new");
    EXPECT_EQ(HeapWatch::liveBlocks(), blocks);
}

TEST_F(SettingsHiveTest, AreTheSameHoweverTheFileIsSpelled)
{
    for (const bool isThere : {false, true}) {
        open(isThere ? 1UL : 0UL);
        const std::wstring name = folder.substr(folder.rfind(L'\\') + 1);
        for (const std::wstring& spelling : {folder + L"\\SETTINGS.Hive", folder + L"\\.\\settings.hive",
                                             folder + L"\\..\\" + name + L"\\settings.hive",
                                             folder + L"/settings.hive", LR"(\\?\)" + file}) {
            void* const same = CreateSettingsHive(spelling.c_str(), 0);
            EXPECT_EQ(same, hive) << utf8(spelling);
            EXPECT_EQ(OpenSettingsHive(spelling.c_str()), hive);
            CloseSettingsHive(same);
            CloseSettingsHive(same);
        }
        EXPECT_EQ(save(), 0);
    }
    open(kSettingsReadOnly);
    EXPECT_EQ(CreateSettingsHive(file.c_str(), 0), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), 5U);
    EXPECT_EQ(CreateSettingsHive(file.c_str(), kSettingsReadOnly), hive);
    CloseSettingsHive(hive);
}

TEST_F(SettingsHiveTest, KeepsADamagedFileBesideTheNewOne)
{
    open();
    set(L"good", L"v", L"kept");
    set(L"bad", L"v", L"lost");
    ASSERT_EQ(save(), 0);
    close();
    Bytes bytes = readBytes(file);
    byteBehind(bytes, "bad", -76) = 'x'; // in the key's record, which lies 80 bytes before its name
    Bytes unclosed = readBytes(file);
    unclosed[4] ^= 2; // one of two sequence numbers; the checksum is that of all words
    unclosed[508] ^= 2;
    const std::pair<Bytes, std::wstring> rows[] = {{bytes, L"good"},
                                                   {Bytes(bytes.begin(), bytes.begin() + 5000), L""},
                                                   {Bytes(5000, 'x'), L""},
                                                   {{}, L""},
                                                   {unclosed, L"bad,good"}};
    int number = 0;
    for (const auto& [damaged, left] : rows) {
        SCOPED_TRACE(++number);
        writeBytes(file, damaged);
        open();
        const unsigned long expected = damaged == unclosed ? 8UL : 2UL; // unclosed, damaged
        EXPECT_EQ(state(), expected);
        EXPECT_EQ(keys(L""), left);
        EXPECT_EQ(readBytes(file), damaged) << "nobody has asked for a save";
        Flushes flushes(1, FALSE, ERROR_IO_DEVICE);
        EXPECT_EQ(save(), ERROR_IO_DEVICE);
        EXPECT_EQ(readBytes(file), damaged);
        const std::wstring kept = file + L".damaged" + (number == 1 ? L"" : L"-" + std::to_wstring(number));
        EXPECT_FALSE(isThere(kept)) << "half of a copy";
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(readBytes(kept), damaged);
        EXPECT_EQ(state(), 0U);
        open();
        EXPECT_EQ(state(), 0U);
        EXPECT_EQ(keys(L""), left);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 6);
}

TEST_F(SettingsHiveTest, KeepsNoCopyOfADamagedFileThatStays)
{
    std::optional<Moves> moves;
    const auto moveAndFail = [](auto move, auto... all) {
        return move(all...), SetLastError(ERROR_IO_DEVICE), FALSE;
    };
    const std::tuple<std::function<void()>, long, const wchar_t*> rows[] = {
        {[&] { SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY); }, 5, L"settings.hive "},
        {[&] { writeBytes(file, Bytes(3, 'y')); }, 1006, L"settings.hive "},
        {[&] { moves.emplace(1, FALSE, ERROR_IO_DEVICE); }, ERROR_IO_DEVICE, L"settings.hive "},
        {[&] { moves.emplace(moveAndFail); }, ERROR_IO_DEVICE, L"settings.hive settings.hive.damaged "}};
    for (const auto& [change, code, left] : rows) {
        writeBytes(file, Bytes(5000, 'x'));
        open();
        change();
        EXPECT_EQ(save(), code);
        moves.reset();
        SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
        EXPECT_EQ(entries(), left);
    }
    EXPECT_EQ(readBytes(file + L".damaged"), Bytes(5000, 'x'));
}

constexpr const wchar_t* kShared = L"SYSMAINT_SHARED_HIVE";
constexpr const wchar_t* kCalls = L"SYSMAINT_CALLS";

// Only for the processes that the next test starts.
TEST(SettingsHiveChild, DISABLED_Dies)
{
    void* const hive = CreateSettingsHive(_wgetenv(kShared), 0);
    const bool isDamaged = asNumber(SettingsHiveGetState)(hive) != 0;
    EXPECT_EQ(SettingsHiveSetText(hive, L"", L"which", L"the new one"), 0);
    long left = std::wcstol(_wgetenv(kCalls), nullptr, 10);
    auto dieAfter = after([&left](auto...) {
        if (--left == 0)
            TerminateProcess(GetCurrentProcess(), 7);
    });
    const Opens opens(dieAfter);
    const Writes writes(dieAfter);
    Flushes flushes(dieAfter);
    const Replaced<"CloseHandle", decltype(&CloseHandle)> closes(dieAfter);
    const Moves moves([&](auto original, LPCWSTR from, LPCWSTR to, DWORD flags) {
        EXPECT_EQ(flushes.calls(), isDamaged ? 2 : 1) << "what is put in place must be on the disk";
        const DWORD replacing = std::wcsstr(to, L".damaged") != nullptr ? 0 : MOVEFILE_REPLACE_EXISTING;
        EXPECT_EQ(flags, replacing | MOVEFILE_WRITE_THROUGH);
        return dieAfter(original, from, to, flags);
    });
    const Replaced<"ReleaseMutex", decltype(&ReleaseMutex)> releases(dieAfter);
    EXPECT_EQ(SettingsHiveSave(hive), 0);
}

TEST_F(SettingsHiveTest, SurvivesAProcessThatDiesInASave)
{
    _wputenv_s(kShared, file.c_str());
    const std::wstring kept = file + L".damaged";
    for (const bool isDamaged : {false, true}) {
        const std::wstring expected = isDamaged ? L"settings.hive settings.hive.damaged " : L"settings.hive ";
        int found[2] = {}; // the new one, the old one
        int leftovers = 0;
        DWORD code = 7;
        for (int calls = 1; code == 7; ++calls) {
            SCOPED_TRACE(calls);
            Bytes old = makeOld();
            close();
            DeleteFileW(kept.c_str());
            old[4] ^= isDamaged ? 2 : 0; // one of two sequence numbers; the checksum is that of all words
            old[508] ^= isDamaged ? 2 : 0;
            writeBytes(file, old);
            _wputenv_s(kCalls, std::to_wstring(calls).c_str());
            code = exitCodeOf(startDisabled(L"--gtest_filter=SettingsHiveChild.DISABLED_Dies"));
            leftovers += entries().find(L".tmp") != std::wstring::npos ? 1 : 0;
            EXPECT_TRUE(!isThere(kept) || readBytes(kept) == old) << "half of a copy";
            const bool isOld = readBytes(file) == old;
            open();
            EXPECT_EQ(state(), isOld && isDamaged ? 8 : 0);
            EXPECT_EQ(text(L"", L"which"), isOld ? L"old" : L"the new one");
            ++found[isOld];
            EXPECT_EQ(save(), 0) << "the turn of the dead is over";
            EXPECT_EQ(entries(), expected) << "one copy, and nothing else";
        }
        EXPECT_EQ(code, 0U);
        EXPECT_GT(found[0] * found[1] * leftovers, 0);
    }
}

TEST_F(SettingsHiveTest, ServesManyThreads)
{
    open();
    onThreadsAtOnce(4, [&](int thread) {
        const std::wstring key = L"thread " + std::to_wstring(thread);
        for (int round = 0; round < 200; ++round) {
            const std::wstring value = L"v" + std::to_wstring(round);
            EXPECT_EQ(SettingsHiveSetNumber32(hive, key.c_str(), value.c_str(), 1), 0);
            EXPECT_EQ(number(key.c_str(), value.c_str()), 1);
            EXPECT_TRUE(round % 50 != thread || save() == 0);
            EXPECT_TRUE(round % 2 != 0 || SettingsHiveDeleteValue(hive, key.c_str(), value.c_str()) == 0);
        }
    });
    EXPECT_EQ(save(), 0);
    open();
    for (const wchar_t* key : {L"thread 0", L"thread 1", L"thread 2", L"thread 3"})
        EXPECT_EQ(std::ranges::count(values(key), L','), 99);
    EXPECT_EQ(entries(), L"settings.hive ");
}
