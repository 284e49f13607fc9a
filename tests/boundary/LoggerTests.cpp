#include "core/win32/utils/logger/api.h"

#include <algorithm>
#include <map>
#include <regex>

#include "core/win32/utils/paths/api.h"
#include "support/Threads.h"
#include "support/Wipe.h"

namespace {
/// The logs' folder, emptied, and one logger on it.
class LoggerTest : public testing::Test
{
protected:
    LoggerTest()
    {
        wchar_t path[1024] = L"%current%\\logs\\%username%\\";
        DllGetPathValidatorW()->validate(path, 1024, nullptr);
        folder = path;
        for (const wchar_t* name : kNames)
            DeleteFileW((folder + name).c_str());
        logger = CreateLogger(L"tests");
    }
    ~LoggerTest() override { CloseLogger(logger); }

    [[nodiscard]] std::wstring content(const wchar_t* name) const
    {
        const Bytes bytes = readBytes(folder + name);
        return {reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t)};
    }
    /// Waits until everything queued before is written: its own last line tells.
    void settle() const
    {
        ASSERT_EQ(WriteLogEntry(logger, L"settle", L"settled"), 0);
        for (int i = 0; i < 6000 && content(L"ZFM.log").find(L"settle:  settled\r\n") == std::wstring::npos;
             ++i)
            Sleep(10);
    }
    [[nodiscard]] std::vector<std::wstring> lines(const wchar_t* name) const
    {
        std::vector<std::wstring> all;
        const std::wstring text = content(name);
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find(L"\r\n", at);
            EXPECT_NE(end, std::wstring::npos);
            if (end == std::wstring::npos)
                break;
            all.push_back(text.substr(at, end - at));
            at = end + 2;
        }
        return all;
    }

    static constexpr const wchar_t* kNames[] = {L"ZFM.log", L"ZRC.log", L"ZPC.log", L"ZDC.log"};
    std::wstring folder;
    void* logger;
};
} // namespace

TEST_F(LoggerTest, PutsEachModulesLinesIntoItsFile)
{
    ASSERT_NE(logger, INVALID_HANDLE_VALUE);
    EXPECT_EQ(OpenLogger(L"tests"), logger);
    EXPECT_NE(CloseLogger(logger), 0);
    const std::wstring longest(100000, L'm');
    const std::wstring pairs = [] {
        std::wstring text;
        for (int i = 0; i < 1000; ++i)
            text += L"\xD83D\xDDD1";
        return text;
    }();
    const std::size_t room = 1021 - 25 - 4; // a module of one character
    struct Case
    {
        const wchar_t* module;
        std::wstring message;
        int file;
        std::wstring expected;
    };
    const Case cases[] = {
        {L"registry CLEANER", L"one", 1, L"registry CLEANER:  one"},
        {L"Privacy Cleaner", L"", 2, L"Privacy Cleaner:  "},
        {L"Disk Cleaner", L"a\nb", 3, L"Disk Cleaner:  a b"},
        {L"Registry Cleaner ", L"two", 0, L"Registry Cleaner :  two"},
        {L"D\u0131sk Cleaner", L"three", 0, L"D\u0131sk Cleaner:  three"},
        {L"", L"\n\n\n", 0, L":     "},
        {L"m", longest, 0, L"m:  " + longest.substr(0, room)},
        {L"m", L"x\xD83Dy\xDDD1", 0, L"m:  x\xD83Dy\xDDD1"},
        {L"m", pairs, 0, L"m:  " + pairs.substr(0, room / 2 * 2)},
        {L"m", L"." + pairs, 0, L"m:  ." + pairs.substr(0, (room - 1) / 2 * 2)},
    };
    for (const Case& c : cases)
        EXPECT_EQ(WriteLogEntry(logger, c.module, c.message.c_str()), 0);
    EXPECT_EQ(WriteLogEntry(logger, nullptr, L"m"), 87);
    EXPECT_EQ(WriteLogEntry(logger, L"m", nullptr), 87);
    EXPECT_EQ(WriteLogEntry(INVALID_HANDLE_VALUE, L"m", L"m"), 6);
    settle();
    std::size_t next[4] = {};
    const std::wregex stamp(LR"(\[ \d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d \]  )");
    for (const Case& c : cases) {
        const std::vector<std::wstring> all = lines(kNames[c.file]);
        ASSERT_LT(next[c.file], all.size());
        const std::wstring& line = all[next[c.file]++];
        EXPECT_TRUE(std::regex_match(line.substr(0, 25), stamp));
        EXPECT_EQ(line.substr(25), c.expected);
    }
    EXPECT_EQ(lines(L"ZFM.log").size(), next[0] + 1);
    ASSERT_EQ(WriteLogEntry(logger, L"Disk Cleaner", L"a\r\nb\nc"), 0);
    ASSERT_EQ(WriteLogEntry(logger, L"settle", L"again"), 0);
    for (int i = 0; i < 6000 && content(L"ZFM.log").find(L"again\r\n") == std::wstring::npos; ++i)
        Sleep(10);
    EXPECT_NE(content(L"ZDC.log").find(L"a\r\nb\nc\r\n"), std::wstring::npos);
}

TEST_F(LoggerTest, KeepsEveryThreadsLinesWholeAndInOrderWithoutTouchingFiles)
{
    constexpr int kThreads = 16;
    constexpr int kEach = 6250;
    std::atomic<long> foreign{0}; // file calls on any thread that logs
    thread_local static bool logging = false;
    CountedImport<"WriteFile", decltype(&WriteFile)> writes(sysmaintModule());
    writes.setHook([&](auto original, auto... arguments) {
        foreign += logging ? 1 : 0;
        return original(arguments...);
    });
    CountedImport<"FlushFileBuffers", decltype(&FlushFileBuffers)> flushes(sysmaintModule());
    flushes.reset();
    const wchar_t* modules[] = {L"other", L"Registry Cleaner", L"Privacy Cleaner", L"Disk Cleaner"};
    onThreadsAtOnce(kThreads, [&](int t) {
        logging = true;
        for (int i = 0; i < kEach; ++i)
            EXPECT_EQ(WriteLogEntry(logger, modules[t % 4],
                                    (std::to_wstring(t) + L"/" + std::to_wstring(i)).c_str()),
                      0);
    });
    settle();
    EXPECT_EQ(foreign, 0);
    EXPECT_EQ(flushes.calls(), 0);
    std::map<int, int> next;
    for (int file = 0; file < 4; ++file)
        for (const std::wstring& line : lines(kNames[file])) {
            if (line.find(L"settle") != std::wstring::npos)
                continue;
            const std::size_t message = line.find(L":  ", 25) + 3;
            const int thread = std::stoi(line.substr(message));
            const int number = std::stoi(line.substr(line.find(L'/', message) + 1));
            ASSERT_EQ(thread % 4, file);
            ASSERT_EQ(number, next[thread]++);
        }
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(next[t], kEach);
}

TEST_F(LoggerTest, OneLivesAtATimeAndItsEndStopsTheOthers)
{
    const DWORD before = processHandleCount();
    EXPECT_EQ(CreateLogger(L"second"), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), 1003U);
    EXPECT_EQ(CreateLogger(nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), 87U);
    EXPECT_EQ(processHandleCount(), before);
    settle(); // the failed one has not stopped ours
    const HANDLE stop = OpenEventW(EVENT_MODIFY_STATE | SYNCHRONIZE, FALSE, L"LogTerminate");
    ASSERT_NE(stop, nullptr);
    EXPECT_EQ(WaitForSingleObject(stop, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    CloseLogger(logger);
    EXPECT_EQ(WaitForSingleObject(stop, 0), WAIT_OBJECT_0);
    // While somebody holds the event, a new logger hears it at once and writes no more than one line.
    logger = CreateLogger(L"tests");
    ASSERT_NE(logger, INVALID_HANDLE_VALUE);
    EXPECT_EQ(WriteLogEntry(logger, L"m", L"never written"), 0);
    {
        const HeapWatch watch(sysmaintModule()); // once its writer has ended nothing is kept for it
        long grown = 1;
        for (int attempt = 0; attempt < 50 && grown != 0; ++attempt, Sleep(20)) {
            grown = HeapWatch::liveBlocks();
            for (int i = 0; i < 2000; ++i)
                EXPECT_EQ(WriteLogEntry(logger, L"m", L"a line that takes the memory of a line"), 0);
            grown = HeapWatch::liveBlocks() - grown;
        }
        EXPECT_EQ(grown, 0);
    }
    CloseLogger(logger);
    CloseHandle(stop);
    logger = CreateLogger(L"tests");
    settle();
}

TEST_F(LoggerTest, BeginsAFileOfTenMebibytesAnewAndNotOneByteLess)
{
    CloseLogger(logger);
    for (const std::size_t size : {10485759U, 10485760U}) {
        Bytes old(size, 'o');
        writeBytes(folder + L"ZRC.log", old);
        long overwritten = 0;
        {
            CountedImport<"WriteFile", decltype(&WriteFile)> writes(sysmaintModule());
            writes.setHook(
                [&](auto original, HANDLE file, LPCVOID data, DWORD bytes, auto* put, auto* overlapped) {
                    overwritten += *static_cast<const char*>(data) == 0 ? static_cast<long>(bytes) : 0;
                    return original(file, data, bytes, put, overlapped);
                });
            logger = CreateLogger(L"tests");
        }
        ASSERT_NE(logger, INVALID_HANDLE_VALUE);
        EXPECT_EQ(overwritten, size == 10485760 ? 10485760 : 0);
        WriteLogEntry(logger, L"Registry Cleaner", L"new");
        WriteLogEntry(logger, L"m", L"new");
        for (int i = 0; i < 6000 && content(L"ZFM.log").empty(); ++i)
            Sleep(10);
        const Bytes now = readBytes(folder + L"ZRC.log");
        EXPECT_EQ(now.size(), (size == 10485760 ? 0 : size) + 2ULL * (25 + 16 + 3 + 3 + 2));
        EXPECT_EQ(std::count(now.begin(), now.end(), 'o'), size == 10485760 ? 0 : static_cast<long>(size));
        CloseLogger(logger);
        DeleteFileW((folder + L"ZFM.log").c_str());
    }
    logger = CreateLogger(L"tests");
}

TEST_F(LoggerTest, ReportsWhatItsConstructionFailsBy)
{
    CloseLogger(logger);
    const auto create = [](const char* about, DWORD code) {
        const DWORD before = processHandleCount();
        EXPECT_EQ(CreateLogger(L"tests"), INVALID_HANDLE_VALUE) << about;
        EXPECT_EQ(GetLastError(), code) << about;
        EXPECT_EQ(processHandleCount(), before) << about;
    };
    {
        CountedImport<"CreateThread", decltype(&CreateThread)> threads(sysmaintModule());
        threads.failCall(1, nullptr, ERROR_NOT_ENOUGH_MEMORY);
        create("thread", 1003);
    }
    {
        CountedImport<"GetFileSizeEx", decltype(&GetFileSizeEx)> sizes(sysmaintModule());
        for (const long call : {1L, 4L}) {
            sizes.failCall(call, FALSE, ERROR_ACCESS_DENIED);
            create("size", 1003);
        }
    }
    {
        CountedImport<"SetFilePointerEx", decltype(&SetFilePointerEx)> seeks(sysmaintModule());
        for (const long call : {1L, 4L}) {
            seeks.failCall(call, FALSE, ERROR_SEEK);
            create("seek", 1003);
        }
    }
    {
        CountedImport<"LoadLibraryExW", decltype(&LoadLibraryExW)> modules(sysmaintModule());
        modules.failCall(1, nullptr, ERROR_MOD_NOT_FOUND);
        create("shell", ERROR_MOD_NOT_FOUND);
    }
    const HANDLE held =
        ::CreateFileW((folder + L"ZDC.log").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
    create("held", 1003);
    CloseHandle(held);
    logger = CreateLogger(L"tests");
    ASSERT_NE(logger, INVALID_HANDLE_VALUE);
}

#ifdef __MINGW32__ // whose names of exported functions these are
TEST_F(LoggerTest, KeepsItsLibraryLoadedUntilItsThreadEndsAndDiesWithIt)
{
    CloseLogger(logger);
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(sysmaintModule(), path, MAX_PATH);
    const std::wstring copy = scratchFolder() + L"\\sysmaint-copy.dll";
    ASSERT_TRUE(CopyFileW(path, copy.c_str(), FALSE));
    const HMODULE library = LoadLibraryW(copy.c_str());
    ASSERT_NE(library, nullptr);
    const auto create = reinterpret_cast<decltype(&CreateLogger)>(
        reinterpret_cast<void*>(GetProcAddress(library, "_Z12CreateLoggerPKw")));
    ASSERT_NE(create, nullptr);
    EXPECT_NE(create(L"never closed"), INVALID_HANDLE_VALUE);
    FreeLibrary(library);
    EXPECT_NE(GetModuleHandleW(L"sysmaint-copy.dll"), nullptr); // the thread's reference
    HANDLE stop = nullptr;
    for (int i = 0; i < 6000 && stop == nullptr; ++i, Sleep(1))
        stop = OpenEventW(EVENT_MODIFY_STATE, FALSE, L"LogTerminate");
    SetEvent(stop);
    CloseHandle(stop);
    // The thread gives back the last reference, and the logger is destroyed on it, in the loader lock.
    for (int i = 0; i < 6000 && GetModuleHandleW(L"sysmaint-copy.dll") != nullptr; ++i)
        Sleep(10);
    EXPECT_EQ(GetModuleHandleW(L"sysmaint-copy.dll"), nullptr);
    logger = CreateLogger(L"tests"); // the files are free again
    EXPECT_NE(logger, INVALID_HANDLE_VALUE);
}
#endif
