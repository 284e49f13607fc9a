#include "BootRunTest.h"

struct Case
{
    std::wstring line;
    std::wstring goes = L""; // the file that is wiped, if any
    bool stays = true;       // the line
};

class BootLineTest : public BootRunTest
{
protected:
    [[nodiscard]] std::vector<Case> cases() const
    {
        const std::wstring longName(255, L'n'), here = root.wstring() + L"\\report";
        std::vector<Case> cases = {
            {line(L"REPORT", L"3*\t*2"), L"report", false},
            {line(L"report", L"2*\t*0"), L"report", false},
            {line(L"report", L"1*\t*1000"), L"report", false},
            {lineOf(L"\\??\\" + shortName()), L"a rather long name.text", false},
            {line(longName), L"", false},
            {line(longName + L"n")},
            {line(std::wstring(32767, L'x'))},
            {line(std::wstring(65536, L'x').insert(0, L"report\\"))},
            {lineOf(here)},
            {lineOf(L"\\\\?\\" + here)},
            {line(L"report").substr(1)},
            {L"junk\r\n"},
            {L"\r\r\n"},
            {std::wstring(L"\0*FileShred*\r\n", 14)},
        };
        for (const wchar_t* goes :
             {L"report", L"windows/temp/x.tmp", L"windows/setup.log", L"folder/nt/setup.log"})
            cases.push_back({line(std::filesystem::path(goes).make_preferred().wstring()), goes, false});
        // To the system itself the last two are other names than "report".
        for (const wchar_t* missing : {L"nothing", L"no folder\\report", L"report.", L"report "})
            cases.push_back({line(missing), L"", false});
        for (const wchar_t* name : {L"folder\\nt\\win.ini",
                                    L"folder\\nt\\system32\\config\\system",
                                    L"bootmgr", // beside the Windows folder, by whatever path
                                    L"keep\\report",
                                    L"folder",
                                    L"folder\\",
                                    L"windows",
                                    L"windows\\ForceDelete.txt",
                                    L"windows\\sysmaint-boot.log",
                                    L"windows\\win.ini",
                                    L"windows\\System32\\ntdll.dll",
                                    L"windows\\temp",
                                    L"ntuser.dat",
                                    L"folder\\..\\report",
                                    L".\\report",
                                    L"folder/x",
                                    L"rep*",
                                    L"repor?",
                                    L"report:stream",
                                    L"report::$DATA",
                                    L"re\tport",
                                    L"report\\",
                                    L"\\report"})
            cases.push_back({line(name)});
        for (const wchar_t* path :
             {L"report", L"\\??\\report", L"\\??\\C:report", L"\\??\\C:\\", L"\\??\\C:", L"\\??\\Q:\\report",
              L"\\??\\PhysicalDrive0", L"\\??\\GLOBALROOT\\Device\\Null",
              L"\\??\\UNC\\localhost\\share\\report", L"\\??\\pipe\\report",
              L"\\??\\Volume{01234567-0123-0123-0123-0123456789ab}\\x",
              L"\\??\\Volume{01234567-0123-0123-0123-0123456789ag}\\x", L"\\??\\C:\\bootmgr",
              L"\\??\\C:\\$MFT", L""})
            cases.push_back({lineOf(path)});
        for (const wchar_t* numbers :
             {L"0*\t*1", L"4*\t*1", L"4294967297*\t*1", L"99999999999999999999999*\t*1", L"1*\t*-1",
              L"1*\t*1001", L"1*\t*1*", L"*\t*1", L"1*\t*", L"1"})
            cases.push_back({line(L"report", numbers)});
        return cases;
    }
    [[nodiscard]] std::wstring shortName() const
    {
        std::wstring path(MAX_PATH, L'\0');
        path.resize(GetShortPathNameW((root / L"a rather long name.text").c_str(), path.data(), MAX_PATH));
        return path;
    }
};

/// Only the listed file changes, and a line stays unless its file is gone.
TEST_F(BootLineTest, LeavesAloneWhatIsNotNamedForCertain)
{
    write(L"a rather long name.text", "1");
    for (const Case& c : cases()) {
        SCOPED_TRACE(testing::Message() << c.line.substr(0, 200));
        const Files before = files();
        setList(kHeader + c.line);
        const RunReport report = run();
        Files expected = before;
        EXPECT_EQ(expected.erase(c.goes), c.goes.empty() ? 0U : 1U);
        EXPECT_EQ(files(), expected);
        EXPECT_EQ(list(), c.stays ? c.line : L"");
        EXPECT_EQ(report.isListEmpty, !c.stays);
        EXPECT_EQ(isThere(L"windows/ForceDelete.txt"), c.stays);
        EXPECT_TRUE(report.lines == 1 && report.left == (c.stays ? 1U : 0U) && report.status == 0);
        for (const auto& [name, bytes] : before)
            if (expected.count(name) == 0)
                write(name, bytes);
    }
    EXPECT_NE(log().find(L"left: not the plain path of a file on a drive: *FileShred*<09>*"),
              std::wstring::npos);
    EXPECT_NE(log().find(L"\\re<09>port*"), std::wstring::npos);
}
