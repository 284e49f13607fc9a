#include "BootRunTest.h"

struct Case
{
    std::wstring line;
    std::wstring goes; // the file to be wiped, if any
    bool stays = true; // the line
};

class BootLineTest : public BootRunTest
{
protected:
    [[nodiscard]] std::vector<Case> cases() const
    {
        const std::wstring longName(255, L'n');
        return {
            {line(L"report"), L"report", false},
            {line(L"REPORT", L"3*\t*2"), L"report", false},
            {line(L"report", L"2*\t*0"), L"report", false},
            {line(L"report", L"1*\t*1000"), L"report", false},
            {line(L"windows\\temp\\x.tmp"), L"windows/temp/x.tmp", false},
            {line(L"windows\\setup.log"), L"windows/setup.log", false},
            {line(L"folder\\nt\\setup.log"), L"folder/nt/setup.log", false},
            {line(L"folder\\nt\\win.ini"), L""},
            {line(L"folder\\nt\\system32\\config\\system"), L""},
            {line(L"bootmgr"), L""}, // beside the Windows folder, by any path
            {lineOf(L"\\??\\" + shortName()), L"a rather long name.text", false},
            {line(L"nothing"), L"", false},
            {line(L"no folder\\report"), L"", false},
            {line(longName), L"", false},
            {line(L"report."), L"", false}, // for the system itself a name other than "report"
            {line(L"report "), L"", false},
            {line(L"keep\\report"), L""},
            {line(L"folder"), L""},
            {line(L"folder\\"), L""},
            {line(L"windows"), L""},
            {line(L"windows\\ForceDelete.txt"), L""},
            {line(L"windows\\sysmaint-boot.log"), L""},
            {line(L"windows\\win.ini"), L""},
            {line(L"windows\\System32\\ntdll.dll"), L""},
            {line(L"windows\\temp"), L""},
            {line(L"ntuser.dat"), L""},
            {line(L"folder\\..\\report"), L""},
            {line(L".\\report"), L""},
            {line(L"folder/x"), L""},
            {line(L"rep*"), L""},
            {line(L"repor?"), L""},
            {line(L"report:stream"), L""},
            {line(L"report::$DATA"), L""},
            {line(L"re\tport"), L""},
            {line(L"report\\"), L""},
            {line(L"\\report"), L""},
            {line(longName + L"n"), L""},
            {line(std::wstring(32767, L'x')), L""},
            {line(std::wstring(65536, L'x').insert(0, L"report\\")), L""},
            {lineOf(root.wstring() + L"\\report"), L""},
            {lineOf(L"\\\\?\\" + root.wstring() + L"\\report"), L""},
            {lineOf(L"report"), L""},
            {lineOf(L"\\??\\report"), L""},
            {lineOf(L"\\??\\C:report"), L""},
            {lineOf(L"\\??\\C:\\"), L""},
            {lineOf(L"\\??\\C:"), L""},
            {lineOf(L"\\??\\Q:\\report"), L""},
            {lineOf(L"\\??\\PhysicalDrive0"), L""},
            {lineOf(L"\\??\\GLOBALROOT\\Device\\Null"), L""},
            {lineOf(L"\\??\\UNC\\localhost\\share\\report"), L""},
            {lineOf(L"\\??\\pipe\\report"), L""},
            {lineOf(L"\\??\\Volume{01234567-0123-0123-0123-0123456789ab}\\x"), L""},
            {lineOf(L"\\??\\Volume{01234567-0123-0123-0123-0123456789ag}\\x"), L""},
            {lineOf(L"\\??\\C:\\bootmgr"), L""},
            {lineOf(L"\\??\\C:\\$MFT"), L""},
            {lineOf(L""), L""},
            {line(L"report", L"0*\t*1"), L""},
            {line(L"report", L"4*\t*1"), L""},
            {line(L"report", L"4294967297*\t*1"), L""},
            {line(L"report", L"99999999999999999999999*\t*1"), L""},
            {line(L"report", L"1*\t*-1"), L""},
            {line(L"report", L"1*\t*1001"), L""},
            {line(L"report", L"1*\t*1*"), L""},
            {line(L"report", L"*\t*1"), L""},
            {line(L"report", L"1*\t*"), L""},
            {line(L"report", L"1"), L""},
            {line(L"report").substr(1), L""},
            {L"junk\r\n", L""},
            {L"\r\r\n", L""},
            {std::wstring(L"\0*FileShred*\r\n", 14), L""},
        };
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
