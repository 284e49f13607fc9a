// Sessions and their users: lists, tokens, folders, and programs started there.

#include "boundary/ProcessTest.h"

#include <knownfolders.h>
#include <shlobj.h>
#include <wtsapi32.h>

#include "support/Faults.h"

namespace {
const std::wstring program = besideTests(L"process_child.exe");
const unsigned long console = WTSGetActiveConsoleSessionId();

/// One run and its results.
struct ProgramRun
{
    explicit ProgramRun(std::vector<const wchar_t*> arguments, unsigned long options = kRunCapture,
                        unsigned long timeout = INFINITE, HANDLE cancel = nullptr)
        : texts(std::move(arguments)), asked{console,      options, program.c_str(), texts.data(),
                                             texts.size(), nullptr, timeout,         cancel}
    {
    }
    long go()
    {
        Given<char> buffer;
        std::size_t size = 0;
        const long code = SessionRunProgram(&asked, &processId, &exitCode, &buffer, &size);
        output.assign(code == 0 ? buffer.get() : "", code == 0 ? size : 0);
        return code;
    }
    std::vector<const wchar_t*> texts;
    SessionProgram asked;
    unsigned long processId = 77, exitCode = 77;
    std::string output;
};

/// Ends the only program, which was meant to live on; returns its id.
unsigned long end()
{
    EXPECT_TRUE(areRunning(1));
    const Listed<ProcessEntry> left(PMFindByName, L"process_child.exe");
    EXPECT_EQ(ProcessEnd(ProcessHandle(CreateProcessW(left[0])).get(), kEndTree, 60000), 0);
    return left[0].id;
}

struct UserSessions : Processes
{
    void TearDown() override
    {
        EXPECT_TRUE(areRunning(0));
        Processes::TearDown();
    }
};

/// The code of asking for a token, which is a primary one.
long tokenOf(unsigned long session, int elevated)
{
    void* token = nullptr;
    TOKEN_TYPE type = TokenImpersonation;
    DWORD size = 0;
    const long code = SessionDuplicateToken(session, elevated, &token);
    EXPECT_TRUE(code != 0 || GetTokenInformation(token, TokenType, &type, sizeof type, &size));
    EXPECT_TRUE(code != 0 || (type == TokenPrimary && CloseHandle(token)));
    return code;
}
} // namespace

TEST_F(UserSessions, AreListedWithTheirUsers)
{
    wchar_t user[256];
    DWORD size = 256;
    GetUserNameW(user, &size);
    const Listed<SessionRecord> list(SessionEnumerate);
    ASSERT_EQ(list.size(), 1U);
    EXPECT_TRUE(list[0].id == console && list[0].isConsole == 1 && list[0].state == WTSActive);
    EXPECT_STREQ(list[0].user, user);
    // As a system with remote sessions lists them; a session that ends meanwhile has no texts.
    const LookedUp services(
        {{"WTSEnumerateSessionsW",
          address(+[](HANDLE, DWORD, DWORD, WTS_SESSION_INFOW** sessions, DWORD* count) -> BOOL {
              *sessions = static_cast<WTS_SESSION_INFOW*>(LocalAlloc(LPTR, 2 * sizeof **sessions));
              (*sessions)[0] = {0, nullptr, WTSDisconnected};
              (*sessions)[1] = {7, nullptr, WTSActive};
              return *count = 2, TRUE;
          })},
         {"WTSQuerySessionInformationW",
          address(+[](HANDLE, DWORD session, WTS_INFO_CLASS kind, wchar_t** text, DWORD*) -> BOOL {
              if (session != 7)
                  return FALSE;
              *text = static_cast<wchar_t*>(LocalAlloc(LPTR, 64));
              std::wcscpy(*text, kind == WTSClientName ? L"far" : kind == WTSUserName ? L"u" : L"d");
              return TRUE;
          })},
         {"WTSFreeMemory", address(+[](void* memory) { LocalFree(memory); })}});
    const Listed<SessionRecord> both(SessionEnumerate);
    ASSERT_EQ(both.size(), 2U);
    EXPECT_TRUE(both[0].state == WTSDisconnected && *both[0].user == 0 && *both[0].clientName == 0);
    EXPECT_EQ(std::wstring(both[1].domain) + both[1].user + both[1].clientName, L"dufar");
    EXPECT_FALSE(both[1].isConsole);
}

TEST_F(UserSessions, GiveOutTheRightTokenOrSayWhyNot)
{
    for (const int elevated : {0, 1})
        EXPECT_EQ(tokenOf(console, elevated), 0);
    const LookedUp refused({{"WTSQueryUserToken", address(+[](ULONG, HANDLE*) -> BOOL {
                                 return SetLastError(ERROR_PRIVILEGE_NOT_HELD), FALSE;
                             })}});
    EXPECT_EQ(tokenOf(console, 0), 0) << "a program of the user's has it itself";
    EXPECT_EQ(tokenOf(console + 1, 0), 1314);
    EXPECT_EQ(asText(SessionGetKnownFolder)(console + 1, &FOLDERID_Desktop), L"code 1314");
    EXPECT_TRUE(SessionImpersonation(console + 1).getCode() == 1314 && !isImpersonating());
}

// Which half of a split token is taken, and that a right is missing for the other one.
TEST_F(UserSessions, GiveOutTheHalfThatIsAskedFor)
{
    DWORD kind = 0, isElevated = 0;
    Replaced<"GetTokenInformation", decltype(&GetTokenInformation)> asking(
        [&](auto original, HANDLE asked, TOKEN_INFORMATION_CLASS what, void* target, DWORD size,
            DWORD* needed) -> BOOL {
            if (what == TokenElevationType || what == TokenElevation)
                return *static_cast<DWORD*>(target) = what == TokenElevation ? isElevated : kind, TRUE;
            if (what == TokenLinkedToken) // nobody may use it
                return *static_cast<HANDLE*>(target) = nullptr, TRUE;
            return original(asked, what, target, size, needed);
        });
    Replaced<"DuplicateTokenEx", decltype(&DuplicateTokenEx)> duplicating(
        [](auto original, HANDLE from, auto... rest) -> BOOL {
            return from != nullptr ? original(from, rest...) : (SetLastError(1346), FALSE);
        });
    constexpr DWORD kDefault = TokenElevationTypeDefault, kLimited = TokenElevationTypeLimited;
    constexpr DWORD kFull = TokenElevationTypeFull;
    for (const auto& [of, flag, wanted, code] : {std::tuple(kDefault, 0U, 0, 0L),
                                                 {kDefault, 0, 1, 740},
                                                 {kDefault, 1, 1, 0},
                                                 {kLimited, 0, 0, 0},
                                                 {kLimited, 0, 1, 1314},
                                                 {kFull, 1, 1, 0},
                                                 {kFull, 1, 0, 1314}}) {
        kind = of, isElevated = flag;
        EXPECT_EQ(tokenOf(console, wanted), code) << of << flag << wanted;
    }
}

TEST_F(UserSessions, KnowTheFoldersOfTheirUser)
{
    PWSTR expected = nullptr;
    ASSERT_EQ(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &expected), S_OK);
    const auto folder = asText(SessionGetKnownFolder);
    EXPECT_EQ(folder(console, &FOLDERID_LocalAppData), expected);
    CoTaskMemFree(expected);
    const GUID none{1, 2, 3, {4}};
    EXPECT_TRUE(folder(console, &none) == L"code 2" && folder(console, nullptr) == L"code 87");
    {
        const SessionImpersonation outer(console);
        EXPECT_EQ(SessionImpersonation(console).getCode(), 0);
        EXPECT_TRUE(isImpersonating()) << "still the outer one";
    }
    EXPECT_FALSE(isImpersonating());
}

TEST_F(UserSessions, RunProgramsWithWhatTheyAreGivenAndTakeWhatTheyWrite)
{
    const std::vector<const wchar_t*> hard = {
        L"echo", L"a b", L"", L"say \"no\"", L"C:\\path with\\", L"\\\\\"", L"\t%x%^&|<>", L"ü€"};
    std::wstring expected;
    for (auto each = hard.begin() + 1; each != hard.end(); ++each)
        expected.append(*each).push_back(L'\0');
    ProgramRun echo(hard);
    ASSERT_EQ(echo.go(), 0);
    EXPECT_EQ(echo.output,
              std::string(reinterpret_cast<const char*>(expected.data()), expected.size() * sizeof(wchar_t)));
    EXPECT_EQ(echo.exitCode, 0U);
    ProgramRun large({L"write", L"10"});
    ASSERT_EQ(large.go(), 0);
    EXPECT_TRUE(large.output == std::string(10U << 20U, 'x')) << large.output.size();
    EXPECT_EQ(large.exitCode, 7U);
    ProgramRun waiting({L"exit", L"5"}, kRunWait | kRunElevated);
    EXPECT_EQ(waiting.go() * 10 + static_cast<long>(waiting.exitCode), 5);
    // A child that outlives it and holds the pipe is not waited for.
    ProgramRun orphan({L"orphan"});
    ASSERT_EQ(orphan.go(), 0);
    EXPECT_EQ(orphan.output, "done");
    end();
    ProgramRun alone({L"sleep"}, 0);
    ASSERT_EQ(alone.go(), 0);
    EXPECT_TRUE(alone.exitCode == 259U && end() == alone.processId);
}

TEST_F(UserSessions, RefuseProgramsThatAreNotMeantAndGiveThemUpInTime)
{
    const TestEvent cancel;
    cancel.set();
    const std::pair<const wchar_t*, long> rows[] = {
        {L"process_child.exe", 87},      {nullptr, 87},       {L"", 87},          {L"C:\\not there.exe", 2},
        {L"C:\\none\\not there.exe", 3}, {L"C:\\x.bat", 193}, {L"C:\\x.CMD", 193}};
    for (const auto& [path, code] : rows) {
        ProgramRun run({L"exit", L"0"});
        run.asked.program = path;
        const long given = run.go();
        EXPECT_TRUE(given == code || (code == 3 && given == 2)) << given << " " << code;
        EXPECT_EQ(run.processId, 77U) << "nothing changes";
    }
    EXPECT_TRUE(ProgramRun({L"exit", nullptr}).go() == 87 && ProgramRun({L"exit"}, 16).go() == 87);
    for (const unsigned long options : {kRunCapture | 0UL, kRunWait | 0UL}) {
        const unsigned long ending = options | kRunEndOnTimeout;
        EXPECT_EQ(ProgramRun({L"tree", L"1", L"2"}, ending, 200).go(), 1460);
        EXPECT_EQ(ProgramRun({L"sleep"}, ending, INFINITE, cancel.get()).go(), 1223);
        EXPECT_TRUE(areRunning(0)) << "and what it has started";
    }
    EXPECT_EQ(ProgramRun({L"sleep"}, kRunCapture, 50).go(), 1460);
    end(); // without the option it runs on
}

TEST_F(UserSessions, LeaveNothingBehindWhateverFails)
{
    const auto run = [] { return ProgramRun({L"write", L"1"}).go(); };
    failEachCall([] {}, run, [](auto&, long code) { EXPECT_EQ(code, static_cast<long>(kFailure)); });
}
