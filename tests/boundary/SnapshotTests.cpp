// The snapshot tool's wrapper, with a stand-in that records its arguments.

#include <bit>

#include "core/win32/utils/restoremanager/api.h"
#include "support/RestoreClient.h"

constexpr std::size_t kLongestLine = 32766;
using Starts = Replaced<"CreateProcessW", decltype(&::CreateProcessW)>;

struct SnapshotTest : testing::Test
{
    SnapshotTest()
    {
        SetEnvironmentVariableW(L"SYSMAINT_TOOL_RECORD", record.c_str());
        CreateDirectoryW((folder + L"\\a ü €").c_str(), nullptr);
        EXPECT_TRUE(CopyFileW(besideTests(L"snapshot_tool.exe").c_str(), tool.c_str(), FALSE));
        std::filesystem::current_path(folder);
    }
    ~SnapshotTest() override { std::filesystem::current_path(before); }

    /// The tool's command line; empty when it did not run. `arguments` is the number of lines that it wrote.
    std::wstring takeLine()
    {
        const std::wstring lines = readText(record);
        DeleteFileW(record.c_str());
        arguments = std::count(lines.begin(), lines.end(), L'\n');
        return lines.substr(0, lines.find(L'\n'));
    }
    long create(const wchar_t* name, const wchar_t* comment = nullptr, const wchar_t* user = nullptr,
                const wchar_t* password = nullptr) const
    {
        return vrl->createSnapshot(tool.c_str(), name, comment, user, password);
    }
    long restore(std::uint32_t mode, const wchar_t* user = nullptr, const wchar_t* password = nullptr,
                 const wchar_t* name = nullptr, const wchar_t* time = nullptr) const
    {
        return vrl->restoreSnapshot(mode, tool.c_str(), user, password, name, time);
    }
    bool isFound(const wchar_t* name) const { return restore(3, nullptr, nullptr, name) == 0; }

    std::filesystem::path before = std::filesystem::current_path();
    std::wstring folder = scratchFolder();
    std::wstring tool = folder + L"\\a ü €\\vrlcmd.exe";
    std::wstring record = folder + L"\\tool-record";
    std::unique_ptr<IVRL> vrl{DllGetVRL()};
    long long arguments = 0;
};

TEST_F(SnapshotTest, TellsTheToolEveryCombinationToTheCharacter)
{
    for (unsigned set = 0; set < 8; ++set) {
        const auto given = [&](unsigned bit, const wchar_t* text, const wchar_t* otherwise = nullptr) {
            return (set & bit) != 0 ? text : otherwise;
        };
        EXPECT_EQ(create(L"b größe €", given(1, L"a /user x"), given(2, L"Jo Doe"), given(4, L"p w\\x")), 0);
        EXPECT_EQ(takeLine(), std::wstring(L"vrlcmd /n /name \"b größe €\"")
                                  .append(given(1, L" /comment \"a /user x\"", L""))
                                  .append(given(2, L" /user \"Jo Doe\"", L""))
                                  .append(given(4, L" /pass \"p w\\x\"", L"")));
        EXPECT_EQ(arguments, 4 + 2 * std::popcount(set));
        const wchar_t* const begins[] = {L"/current ", L"/baseline ", L"/time \"14:07 today\""};
        for (std::uint32_t mode = 0; mode < 3; ++mode) {
            EXPECT_EQ(restore(mode, given(2, L"€u"), given(4, L"p\\"), L"n", L"14:07 today"), 0);
            EXPECT_EQ(takeLine(), std::wstring(L"vrlcmd /r ")
                                      .append(begins[mode])
                                      .append(given(2, L" /user €u", L""))
                                      .append(given(4, L" /pass p\\", L"")));
        }
    }
    EXPECT_EQ(create(L"n", L""), 0);
    EXPECT_EQ(takeLine(), L"vrlcmd /n /name \"n\" /comment \"\"");
    EXPECT_EQ(create(std::wstring(kLongestLine - 18, L'x').c_str()), 0);
    EXPECT_EQ(takeLine().size(), kLongestLine);
}

// Values that are missing or could become another argument start nothing.
TEST_F(SnapshotTest, RefusesWhatIsMissingOrCannotBeCarried)
{
    const Starts starts;
    writeText(L"snapshot.qmx", L"n\t14:07\n");
    std::vector<long> codes;
    const std::wstring tooLong(kLongestLine - 17, L'x'); // the shortest line has 18 more
    for (const wchar_t* bad :
         {L"\"", L"a\" /r /baseline \"", L"a\\", L"a\\\\", L"a\rb", L"a\n", tooLong.c_str()})
        codes.insert(codes.end(),
                     {create(bad), create(L"n", bad), create(L"n", nullptr, bad),
                      create(L"n", nullptr, nullptr, bad), restore(2, nullptr, nullptr, nullptr, bad)});
    for (const wchar_t* bad : {L"", L"\"", L"a b", L"a\t/x", L"a\nb"})
        for (const long code : {restore(0, bad), restore(1, nullptr, bad), restore(3, bad, nullptr, L"n")})
            codes.push_back(code);
    for (const wchar_t* none : {static_cast<const wchar_t*>(nullptr), L""})
        codes.insert(codes.end(), {create(none), restore(2, nullptr, nullptr, L"n", none),
                                   restore(3, nullptr, nullptr, none, L"14:07"),
                                   vrl->restoreSnapshot(0, none, nullptr, nullptr, nullptr, nullptr)});
    const std::wstring dotted = tool + L".";
    for (const wchar_t* bad :
         {static_cast<const wchar_t*>(nullptr), L"", L"v.bat", L"C:\\a.CMD", L"x.bat. .", dotted.c_str()})
        codes.push_back(vrl->createSnapshot(bad, L"n", nullptr, nullptr, nullptr));
    for (const std::uint32_t mode : {4U, 0xFFFFFFFFU})
        codes.push_back(restore(mode, nullptr, nullptr, L"n", L"14:07"));
    for (const long& code : codes)
        EXPECT_EQ(code, kSnapshotFailed) << &code - codes.data();
    EXPECT_EQ(starts.calls(), 0);
}

TEST_F(SnapshotTest, StartsTheToolAndWaitsForItsEnd)
{
    const DWORD handles = processHandleCount();
    SetEnvironmentVariableW(L"SYSMAINT_TOOL_RESULT", L"3"); // ignored
    SetEnvironmentVariableW(L"SYSMAINT_TOOL_DELAY", L"300");
    Starts starts(::before([](auto, auto, auto, auto, BOOL inherits, DWORD flags, auto environment,
                              auto directory, auto startup, auto) {
        EXPECT_TRUE(startup->cb == sizeof *startup && startup->dwFlags == 0 && !startup->lpTitle);
        EXPECT_TRUE(inherits && flags == NORMAL_PRIORITY_CLASS && !environment && !directory);
    }));
    EXPECT_EQ(create(L"slow"), 0);
    EXPECT_EQ(takeLine(), L"vrlcmd /n /name \"slow\"");
    SetEnvironmentVariableW(L"SYSMAINT_TOOL_DELAY", nullptr);
    {
        Polls waits(1, WAIT_FAILED, 6);
        EXPECT_EQ(create(L"n"), kSnapshotFailed) << "what cannot be waited for may still run";
    }
    for (const wchar_t* none : {L"none.exe", folder.c_str()})
        EXPECT_EQ(vrl->createSnapshot(none, L"n", nullptr, nullptr, nullptr), kSnapshotFailed);
    EXPECT_EQ(processHandleCount(), handles);
    // Each allocation fails in turn.
    const HeapWatch watch(sysmaintModule());
    long number = 0;
    do {
        HeapWatch::arm(++number);
        const long status = create(L"a name that does not stand in a string without memory of its own");
        HeapWatch::disarm();
        EXPECT_EQ(status, HeapWatch::hasFailed() ? kSnapshotNoMemory : 0) << number;
    } while (HeapWatch::hasFailed());
    EXPECT_GT(number, 1) << "takes no memory at all?";
    EXPECT_EQ(HeapWatch::liveBlocks(), 0);
}

TEST_F(SnapshotTest, FindsTheTimeOfANameInTheList)
{
    const std::wstring name = L"before größe €\t";
    const std::wstring wanted = name + L"2010-03-05 14:07\r\n";
    const std::wstring longTime(64, L'9');
    std::wstring large;
    while (large.size() < 5000000)
        large += L"some other name\t2009-01-01 10:00\r\n";
    const auto expect = [&](const std::wstring& list, const std::wstring& time) {
        for (const bool isOdd : {false, true}) {
            writeText(L"snapshot.qmx", list, isOdd);
            EXPECT_EQ(isFound(L"before größe €"), !time.empty()) << list.substr(0, 80);
            EXPECT_EQ(takeLine(), time.empty() ? L"" : L"vrlcmd /r /time \"" + time + L"\"");
        }
    };
    for (const std::wstring& list : {wanted, L"\xFEFF" + wanted, large + wanted, wanted + wanted + L"x"})
        expect(list, L"2010-03-05 14:07");
    for (std::size_t place = 512 - wanted.size() - 1; place <= 513; ++place) // over a block's border
        expect(std::wstring(place - 3, L'x') + L"\tt\n" + wanted, L"2010-03-05 14:07");
    expect(name + longTime + L"\n", longTime);
    expect(name + L"1\t2\n", L"1\t2");
    // Which of two, too long, empty, another argument, two lines, still being written, other names.
    for (const std::wstring& list :
         {std::wstring(), std::wstring(L"\n\n\t\r\n"), large, wanted + name + L"2011-01-01\n",
          name + longTime + L"9\n", name + L"\r\n", name + L"a\" /x \"\n", name + L"1\r2\n",
          name + std::wstring(L"1\0", 2) + L"2\n", name + L"2010-03-05 14:0",
          L"before größe € \t1\nx " + name + L"1\nBefore größe €\t1\nbefore größe\t1\nbefore größe €"})
        expect(list, L"");
}

TEST_F(SnapshotTest, ReadsTheListInBlocksAndNotWhileOthersHaveIt)
{
    EXPECT_FALSE(isFound(L"n") || isThere(L"snapshot.qmx"));
    writeText(L"snapshot.qmx", L"n\t1\n");
    EXPECT_FALSE(isFound(L"n\t1"));
    {
        Replaced<"ReadFile", decltype(&ReadFile)> reads(
            [](auto original, HANDLE file, LPVOID target, DWORD size, auto... rest) -> BOOL {
                EXPECT_LE(size, 1024U);
                return original(file, target, std::min<DWORD>(size, 3), rest...); // halves of characters
            });
        EXPECT_TRUE(isFound(L"n"));
        reads.failCall(1, FALSE, ERROR_CRC);
        EXPECT_FALSE(isFound(L"n"));
    }
    const Win32Handle held = openedFile(L"snapshot.qmx", GENERIC_READ, FILE_SHARE_READ);
    EXPECT_FALSE(isFound(L"n"));
}
