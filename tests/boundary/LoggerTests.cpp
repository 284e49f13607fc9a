#include "core/win32/utils/logger/api.h"

#include <regex>

#include "support/Wipe.h"

constexpr std::ptrdiff_t kWhole = 10485760; // bytes at which a file is restarted

/// The logs' folder, emptied, and one logger on it.
struct LoggerTest : testing::Test
{
    LoggerTest()
    {
        wchar_t path[1024] = L"%current%\\logs\\%username%\\";
        DllGetPathValidatorW()->validate(path, 1024, nullptr);
        folder = path;
        for (const wchar_t* name : kNames)
            DeleteFileW((folder + name).c_str());
        reopen();
    }
    ~LoggerTest() override { CloseLogger(logger); }
    void reopen() { ASSERT_NE(logger = CreateLogger(L"tests"), INVALID_HANDLE_VALUE); }
    void write(const wchar_t* module, const std::wstring& text) const
    {
        EXPECT_EQ(WriteLogEntry(logger, module, text.c_str()), ERROR_SUCCESS);
    }
    [[nodiscard]] std::wstring content(const wchar_t* name) const { return readText(folder + name); }
    /// Waits until everything queued before is written: a last line of its own tells.
    void settle() const
    {
        static int turn = 0;
        const std::wstring last = std::to_wstring(++turn) + L" is settled";
        write(L"settle", last);
        EXPECT_TRUE(comesTrue([&] { return content(kNames[0]).find(last + L"\r\n") != std::wstring::npos; }));
    }
    /// The lines of a file except those of settle.
    [[nodiscard]] std::vector<std::wstring> lines(const wchar_t* name) const
    {
        std::vector<std::wstring> all;
        std::wistringstream text(content(name));
        for (std::wstring line; std::getline(text, line);) {
            EXPECT_EQ(line.back(), L'\r');
            line.pop_back();
            if (line.compare(25, 6, L"settle") != 0)
                all.push_back(line);
        }
        return all;
    }

    static constexpr const wchar_t* kNames[] = {L"ZFM.log", L"ZRC.log", L"ZPC.log", L"ZDC.log"};
    std::wstring folder;
    void* logger = nullptr;
};

TEST_F(LoggerTest, PutsEachModulesLinesIntoItsFile)
{
    EXPECT_EQ(OpenLogger(L"tests"), logger);
    EXPECT_NE(CloseLogger(logger), 0);
    const std::wstring longest(100000, L'm');
    std::wstring pairs;
    for (int i = 0; i < 1000; ++i)
        pairs += L"\xD83D\xDDD1";
    const std::size_t room = 1021 - 25 - 4; // a module of one character
    const std::tuple<int, const wchar_t*, std::wstring, std::wstring> cases[] = {
        {1, L"registry CLEANER", L"one", L"one"},
        {2, L"Privacy Cleaner", L"", L""},
        {3, L"Disk Cleaner", L"a\nb", L"a b"},
        {0, L"Registry Cleaner ", L"two", L"two"},
        {0, L"D\u0131sk Cleaner", L"three", L"three"},
        {0, L"", L"\n\n\n", L"   "},
        {0, L"m", longest, longest.substr(0, room)},
        {0, L"m", L"x\xD83Dy\xDDD1", L"x\xD83Dy\xDDD1"},
        {0, L"m", pairs, pairs.substr(0, room / 2 * 2)},
        {0, L"m", L"." + pairs, L"." + pairs.substr(0, (room - 1) / 2 * 2)}};
    for (const auto& [file, module, message, shown] : cases)
        write(module, message);
    settle();
    std::size_t next[4] = {};
    const std::wregex stamp(LR"(\[ \d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d \]  )");
    for (const auto& [file, module, message, shown] : cases) {
        const std::vector<std::wstring> all = lines(kNames[file]);
        ASSERT_LT(next[file], all.size());
        const std::wstring& line = all[next[file]++];
        EXPECT_TRUE(std::regex_match(line.substr(0, 25), stamp));
        EXPECT_EQ(line.substr(25), module + (L":  " + shown));
    }
    EXPECT_EQ(lines(kNames[0]).size(), next[0]);
    write(L"Disk Cleaner", L"a\r\nb\nc");
    settle();
    EXPECT_NE(content(kNames[3]).find(L"a\r\nb\nc\r\n"), std::wstring::npos);
}

TEST_F(LoggerTest, KeepsEveryThreadsLinesWholeAndInOrderWithoutTouchingFiles)
{
    constexpr int kThreads = 16;
    constexpr int kEach = 2000;
    std::atomic<long> foreign{0}; // file calls on any thread that logs
    thread_local static bool logging = false;
    Writes writes(before([&](auto...) { foreign += logging ? 1 : 0; }));
    const Flushes flushes;
    const wchar_t* modules[] = {L"other", L"Registry Cleaner", L"Privacy Cleaner", L"Disk Cleaner"};
    onThreadsAtOnce(kThreads, [&](int t) {
        logging = true;
        for (int i = 0; i < kEach; ++i)
            write(modules[t % 4], std::to_wstring(t) + L"/" + std::to_wstring(i));
    });
    settle();
    EXPECT_TRUE(foreign == 0 && flushes.calls() == 0);
    std::map<int, int> next;
    for (int file = 0; file < 4; ++file)
        for (const std::wstring& line : lines(kNames[file])) {
            const std::size_t message = line.find(L":  ", 25) + 3;
            const int thread = std::stoi(line.substr(message));
            ASSERT_EQ(thread % 4, file);
            ASSERT_EQ(std::stoi(line.substr(line.find(L'/', message) + 1)), next[thread]++);
        }
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(next[t], kEach);
}

TEST_F(LoggerTest, OneLivesAtATimeAndItsEndStopsTheOthers)
{
    settle();
    EXPECT_FALSE(DeleteFileW((folder + kNames[0]).c_str())) << "its files are its own";
    const DWORD handles = processHandleCount();
    EXPECT_EQ(refusalOf(CreateLogger(L"second")), 1003U);
    EXPECT_EQ(processHandleCount(), handles);
    settle(); // the failed one has not stopped ours
    const HANDLE stop = OpenEventW(EVENT_MODIFY_STATE | SYNCHRONIZE, FALSE, L"LogTerminate");
    ASSERT_NE(stop, nullptr);
    EXPECT_EQ(WaitForSingleObject(stop, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    CloseLogger(logger);
    EXPECT_EQ(WaitForSingleObject(stop, 0), WAIT_OBJECT_0);
    // While somebody holds the event, a new logger sees it at once and writes only one line.
    reopen();
    write(L"m", L"never written");
    EXPECT_TRUE(comesTrue([this, watch = std::make_shared<HeapWatch>(sysmaintModule())] {
        const long blocks = HeapWatch::liveBlocks();
        for (int i = 0; i < 2000; ++i)
            write(L"m", L"a line that takes the memory of a line");
        return HeapWatch::liveBlocks() == blocks;
    })) << "nothing is kept once its writer has ended";
    CloseLogger(logger);
    CloseHandle(stop);
    reopen();
    settle();
}

TEST_F(LoggerTest, BeginsAFileOfTenMebibytesAnewAndNotOneByteLess)
{
    const std::wstring path = folder + kNames[3];
    const auto countOld = [](const std::wstring& file) { return std::ranges::count(readBytes(file), 'o'); };
    for (const std::ptrdiff_t size : {kWhole - 1, kWhole}) {
        CloseLogger(logger);
        writeBytes(path, Bytes(size, 'o'));
        std::ptrdiff_t overwritten = 0;
        {
            Writes writes(before([&](HANDLE, LPCVOID data, DWORD bytes, auto...) {
                overwritten += *static_cast<const char*>(data) == 0 ? bytes : 0;
            }));
            reopen();
        }
        const std::ptrdiff_t kept = size == kWhole ? 0 : size;
        EXPECT_EQ(overwritten, size - kept);
        write(L"Disk Cleaner", L"new");
        settle();
        EXPECT_EQ(std::ssize(readBytes(path)), kept + 2LL * (25 + 12 + 3 + 3 + 2));
        EXPECT_EQ(countOld(path), kept);
    }
    // Somebody's file under a second name: only the name is deleted, and nothing if that cannot be told.
    CloseLogger(logger);
    writeBytes(path, Bytes(kWhole, 'o'));
    {
        const Replaced<"GetFileInformationByHandle", decltype(&GetFileInformationByHandle)> untold(kEachCall,
                                                                                                   FALSE, 5);
        EXPECT_TRUE(refusalOf(CreateLogger(L"tests")) == 1003U && countOld(path) == kWhole);
    }
    const std::wstring kept = folder + L"kept";
    writeBytes(kept, Bytes(kWhole, 'o'));
    DeleteFileW(path.c_str());
    ASSERT_TRUE(CreateHardLinkW(path.c_str(), kept.c_str(), nullptr));
    reopen();
    EXPECT_TRUE(readBytes(path).empty() && countOld(kept) == kWhole);
    DeleteFileW(kept.c_str());
}

TEST_F(LoggerTest, KeepsItsLibraryLoadedUntilItsThreadEndsAndDiesWithIt)
{
    CloseLogger(logger);
    const std::wstring copy = scratchFolder() + L"\\sysmaint-copy.dll";
    ASSERT_TRUE(CopyFileW(besideTests(L"sysmaint.dll").c_str(), copy.c_str(), FALSE));
    const HMODULE library = LoadLibraryW(copy.c_str());
    const auto create = reinterpret_cast<decltype(&CreateLogger)>(
        reinterpret_cast<void*>(GetProcAddress(library, "CreateLogger")));
    ASSERT_NE(create, nullptr);
    EXPECT_NE(create(L"never closed"), INVALID_HANDLE_VALUE);
    FreeLibrary(library);
    EXPECT_NE(GetModuleHandleW(L"sysmaint-copy.dll"), nullptr); // the thread's reference
    HANDLE stop = nullptr;
    EXPECT_TRUE(comesTrue([&] {
        stop = OpenEventW(EVENT_MODIFY_STATE, FALSE, L"LogTerminate");
        return stop != nullptr;
    }));
    SetEvent(stop);
    CloseHandle(stop);
    // The thread releases the last reference, and the logger is destroyed on it, in the loader lock.
    EXPECT_TRUE(comesTrue([] { return GetModuleHandleW(L"sysmaint-copy.dll") == nullptr; }));
    reopen(); // the files are free again
}
