// The snapshot tool's wrapper, with a stand-in that writes down what it was called with.

#include <fcntl.h>
#include <io.h>

#include "core/win32/utils/restoremanager/api.h"
#include "support/RestoreClient.h"

namespace {
/// The current folder, for the length of a scope.
class CurrentFolder
{
public:
    explicit CurrentFolder(const std::wstring& folder)
    {
        GetCurrentDirectoryW(MAX_PATH, m_old);
        SetCurrentDirectoryW(folder.c_str());
    }
    CurrentFolder(const CurrentFolder&) = delete;
    ~CurrentFolder() { SetCurrentDirectoryW(m_old); }

private:
    wchar_t m_old[MAX_PATH]{};
};

class SnapshotTest : public testing::Test
{
protected:
    SnapshotTest()
    {
        SetEnvironmentVariableW(L"SYSMAINT_TOOL_RECORD", record.c_str());
        CreateDirectoryW((folder + L"\\a ü €").c_str(), nullptr);
        EXPECT_TRUE(CopyFileW((programFolder() + L"snapshot_tool.exe").c_str(), tool.c_str(), FALSE));
    }
    ~SnapshotTest() override
    {
        for (const wchar_t* name : {L"SYSMAINT_TOOL_RECORD", L"SYSMAINT_TOOL_DELAY", L"SYSMAINT_TOOL_RESULT"})
            SetEnvironmentVariableW(name, nullptr);
    }

    /// The tool's command line and arguments; empty when it did not run.
    std::vector<std::wstring> takeLines() const
    {
        const Bytes bytes = readBytes(record);
        DeleteFileW(record.c_str());
        std::wstringstream text(
            std::wstring(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t)));
        std::vector<std::wstring> lines;
        for (std::wstring line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }
    std::wstring takeLine() const
    {
        const std::vector<std::wstring> lines = takeLines();
        return lines.empty() ? L"" : lines[0];
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

    std::wstring folder = scratchFolder();
    std::wstring tool = folder + L"\\a ü €\\vrlcmd.exe";
    std::wstring record = folder + L"\\tool-record";
    CurrentFolder current{folder};
    std::unique_ptr<IVRL> vrl{DllGetVRL()};
};
} // namespace

TEST_F(SnapshotTest, TellsTheToolEveryCombinationToTheCharacter)
{
    const auto given = [](bool is, const wchar_t* text) { return is ? text : nullptr; };
    for (unsigned set = 0; set < 8; ++set) {
        const bool comment = (set & 1) != 0;
        const bool user = (set & 2) != 0;
        const bool password = (set & 4) != 0;
        EXPECT_EQ(create(L"before größe €", given(comment, L"a /user x"), given(user, L"Jo Doe"),
                         given(password, L"p w\\x")),
                  0);
        const std::vector<std::wstring> lines = takeLines();
        ASSERT_EQ(lines.size(), 1U + 4 + (comment ? 2 : 0) + (user ? 2 : 0) + (password ? 2 : 0));
        EXPECT_EQ(lines[0], std::wstring(L"vrlcmd /n /name \"before größe €\"") +
                                  (comment ? L" /comment \"a /user x\"" : L"") +
                                  (user ? L" /user \"Jo Doe\"" : L"") +
                                  (password ? L" /pass \"p w\\x\"" : L""));
        const std::wstring account =
            std::wstring(user ? L" /user €u" : L"") + (password ? L" /pass p\\" : L"");
        const auto restored = [&](std::uint32_t mode) {
            EXPECT_EQ(restore(mode, given(user, L"€u"), given(password, L"p\\"), L"n", L"14:07 today"), 0);
            return takeLine();
        };
        EXPECT_EQ(restored(0), L"vrlcmd /r /current " + account);
        EXPECT_EQ(restored(1), L"vrlcmd /r /baseline " + account);
        EXPECT_EQ(restored(2), L"vrlcmd /r /time \"14:07 today\"" + account);
    }
    EXPECT_EQ(create(L"n", L""), 0);
    EXPECT_EQ(takeLine(), L"vrlcmd /n /name \"n\" /comment \"\"");
}

// What is missing or could become another argument starts nothing.
TEST_F(SnapshotTest, RefusesWhatIsMissingOrCannotBeCarried)
{
    for (const wchar_t* bad : {L"\"", L"a\" /r /baseline \"", L"a\\", L"a\\\\"}) {
        EXPECT_EQ(create(bad), kSnapshotFailed) << bad;
        EXPECT_EQ(create(L"n", bad), kSnapshotFailed) << bad;
        EXPECT_EQ(create(L"n", nullptr, bad), kSnapshotFailed) << bad;
        EXPECT_EQ(create(L"n", nullptr, nullptr, bad), kSnapshotFailed) << bad;
        EXPECT_EQ(restore(2, nullptr, nullptr, nullptr, bad), kSnapshotFailed) << bad;
    }
    for (const wchar_t* bad : {L"", L"\"", L"a b", L"a\t/x", L"a\nb"}) {
        EXPECT_EQ(restore(0, bad), kSnapshotFailed) << bad;
        EXPECT_EQ(restore(1, nullptr, bad), kSnapshotFailed) << bad;
    }
    for (const wchar_t* none : {static_cast<const wchar_t*>(nullptr), L""}) {
        EXPECT_EQ(create(none), kSnapshotFailed);
        EXPECT_EQ(restore(2, nullptr, nullptr, L"n", none), kSnapshotFailed);
        EXPECT_EQ(restore(3, nullptr, nullptr, none, L"14:07"), kSnapshotFailed);
        EXPECT_EQ(vrl->createSnapshot(none, L"n", nullptr, nullptr, nullptr), kSnapshotFailed);
        EXPECT_EQ(vrl->restoreSnapshot(0, none, nullptr, nullptr, nullptr, nullptr), kSnapshotFailed);
    }
    EXPECT_EQ(restore(4, nullptr, nullptr, L"n", L"14:07"), kSnapshotFailed);
    EXPECT_EQ(restore(0xFFFFFFFF), kSnapshotFailed);
    Replaced<"CreateProcessW", decltype(&::CreateProcessW)> starts;
    for (const wchar_t* batch : {L"vrlcmd.bat", L"C:\\a.CMD", L"x.bat. ."})
        EXPECT_EQ(vrl->createSnapshot(batch, L"n", nullptr, nullptr, nullptr), kSnapshotFailed);
    EXPECT_EQ(starts.calls(), 0);
    EXPECT_TRUE(takeLines().empty());
}

TEST_F(SnapshotTest, WaitsForTheToolAndSaysWhenItCannotBeStarted)
{
    SetEnvironmentVariableW(L"SYSMAINT_TOOL_RESULT", L"3"); // its own affair
    SetEnvironmentVariableW(L"SYSMAINT_TOOL_DELAY", L"300");
    EXPECT_EQ(create(L"slow"), 0);
    EXPECT_EQ(takeLine(), L"vrlcmd /n /name \"slow\"");
    SetEnvironmentVariableW(L"SYSMAINT_TOOL_DELAY", nullptr);

    // A tool that is not there and one that is no program; what is printed goes to the standard output.
    writeBytes(folder + L"\\text.exe", {'x'});
    const int saved = _dup(1);
    const int output = _wopen((folder + L"\\output").c_str(), _O_CREAT | _O_WRONLY | _O_BINARY, 0600);
    _dup2(output, 1);
    const long missing =
        vrl->createSnapshot((folder + L"\\none.exe").c_str(), L"n", nullptr, nullptr, nullptr);
    const long noProgram =
        vrl->restoreSnapshot(0, (folder + L"\\text.exe").c_str(), nullptr, nullptr, nullptr, nullptr);
    _dup2(saved, 1);
    _close(output);
    _close(saved);
    EXPECT_EQ(missing, kSnapshotFailed);
    EXPECT_EQ(noProgram, kSnapshotFailed);
    const Bytes printed = readBytes(folder + L"\\output");
    std::string text(printed.begin(), printed.end());
    std::erase(text, '\r');
    EXPECT_EQ(text, "CreateProcess failed (2).\nCreateProcess failed (193).\n");

    const DWORD handles = processHandleCount();
    {
        Replaced<"WaitForSingleObject", decltype(&WaitForSingleObject)> waits;
        waits.failCall(1, WAIT_FAILED, ERROR_INVALID_HANDLE);
        EXPECT_EQ(create(L"n"), kSnapshotFailed) << "what cannot be waited for may still run";
    }
    Replaced<"CreateProcessW", decltype(&::CreateProcessW)> starts(
        [](auto original, LPCWSTR name, LPWSTR line, auto process, auto thread, BOOL inherits, DWORD flags,
           LPVOID environment, LPCWSTR directory, LPSTARTUPINFOW startup, auto* started) -> BOOL {
            EXPECT_TRUE(inherits && environment == nullptr && directory == nullptr);
            EXPECT_EQ(flags, DWORD{NORMAL_PRIORITY_CLASS});
            EXPECT_EQ(startup->cb, sizeof *startup);
            EXPECT_EQ(startup->dwFlags, 0U);
            return original(name, line, process, thread, inherits, flags, environment, directory, startup,
                            started);
        });
    EXPECT_EQ(create(L"n"), 0);
    EXPECT_EQ(processHandleCount(), handles);
    // Each taking of memory in turn finds none.
    const HeapWatch watch(sysmaintModule());
    long failing = 1;
    for (bool failed = true; failed; ++failing) {
        HeapWatch::arm(failing);
        const long status = create(L"a name that does not stand in a string without memory of its own");
        failed = HeapWatch::hasFailed();
        HeapWatch::disarm();
        EXPECT_EQ(status, failed ? kSnapshotNoMemory : 0) << failing;
    }
    EXPECT_GT(failing, 2);
    EXPECT_EQ(HeapWatch::liveBlocks(), 0) << HeapWatch::describe();
}

TEST_F(SnapshotTest, FindsTheTimeOfANameInTheList)
{
    const std::wstring wanted = L"before größe €\t2010-03-05 14:07\r\n";
    const auto filler = [](std::size_t characters) {
        return std::wstring(characters - 4, L'x') + L"\tt\r\n";
    };
    const std::wstring longTime(64, L'9');
    std::wstring large;
    while (large.size() < 5000000)
        large += L"some other name\t2009-01-01 10:00\r\n";
    struct Row
    {
        std::wstring list;
        std::wstring time; // empty: refused
    };
    const std::wstring good = L"2010-03-05 14:07";
    std::vector<Row> rows = {
        {wanted, good},
        {L"\xFEFF" + wanted, good},
        {filler(100) + wanted, good},
        {filler(100) + wanted + filler(700), good},
        {large + wanted, good},
        {wanted + wanted, good},
        {L"before größe €\t" + longTime + L"\n", longTime},
        {L"before größe €\t2010-03-05\t14:07\n", L"2010-03-05\t14:07"},
        {L"", L""},
        {L"\n\n\t\r\n", L""},
        {large, L""},
        {wanted + L"before größe €\t2011-01-01\n", L""}, // which one?
        {L"before größe €\t" + longTime + L"9\n", L""},
        {L"before größe €\t\r\n", L""},
        {L"before größe €\ta\" /x \"\n", L""},
        {L"before größe €\t2010-03-05 14:0", L""}, // still being written
        {L"before größe €", L""},
        {L"before größe € \t1\nx before größe €\t1\nBefore größe €\t1\nbefore größe\t1\n", L""}};
    for (std::size_t before = 512 - wanted.size() - 1; before <= 513; ++before) // over the block's border
        rows.push_back({filler(before) + wanted, good});
    for (const Row& row : rows) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(row.list.data());
        Bytes list(bytes, bytes + row.list.size() * sizeof(wchar_t));
        for (int odd = 0; odd < 2; ++odd) {
            writeBytes(L"snapshot.qmx", list);
            EXPECT_EQ(restore(3, nullptr, nullptr, L"before größe €"), row.time.empty() ? kSnapshotFailed : 0)
                << row.list.substr(0, 80);
            EXPECT_EQ(takeLine(), row.time.empty() ? L"" : L"vrlcmd /r /time \"" + row.time + L"\"");
            list.push_back(0); // half a character at the end
        }
    }
    const auto found = [&] { return restore(3, nullptr, nullptr, L"n") == 0; };
    const auto write = [](const std::wstring& text) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
        writeBytes(L"snapshot.qmx", Bytes(bytes, bytes + text.size() * sizeof(wchar_t)));
    };
    write(L"n\t1\n");
    EXPECT_TRUE(found());
    EXPECT_EQ(restore(3, nullptr, nullptr, L"n\t1"), kSnapshotFailed);
    {
        Replaced<"ReadFile", decltype(&ReadFile)> reads(
            [](auto original, HANDLE file, LPVOID target, DWORD size, auto... rest) -> BOOL {
                EXPECT_LE(size, 1024U);
                return original(file, target, std::min<DWORD>(size, 3), rest...); // halves of characters
            });
        EXPECT_TRUE(found());
        reads.failCall(1, FALSE, ERROR_CRC);
        EXPECT_FALSE(found());
    }
    const HANDLE held = ::CreateFileW(L"snapshot.qmx", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_FALSE(found()) << "open elsewhere";
    CloseHandle(held);
    DeleteFileW(L"snapshot.qmx");
    EXPECT_FALSE(found());
    EXPECT_FALSE(isThere(L"snapshot.qmx"));
}
