#include "BootRunTest.h"

#include <regex>

struct Case
{
    std::wstring line;
    std::wstring goes = L""; // the file that is wiped, if any
    bool stays = true;       // the line
};

struct BootLineTest : BootRunTest
{
    [[nodiscard]] std::vector<Case> cases() const
    {
        const std::wstring longName(255, L'n'), here = root.wstring() + L"\\report";
        wchar_t shortName[MAX_PATH];
        GetShortPathNameW((root / L"a rather long name.text").c_str(), shortName, MAX_PATH);
        std::vector<Case> cases = {
            {line(L"REPORT", L"3*\t*2"), L"report", false},
            {line(L"report", L"2*\t*0"), L"report", false},
            {line(L"report", L"1*\t*1000"), L"report", false},
            {lineOf(std::wstring(L"\\??\\") + shortName), L"a rather long name.text", false},
            {line(longName), L"", false}};
        for (const std::wstring& stays :
             {line(longName + L"n"), line(std::wstring(32767, L'x')),
              line(std::wstring(65536, L'x').insert(0, L"report\\")), lineOf(here), lineOf(L"\\\\?\\" + here),
              line(L"report").substr(1), std::wstring(L"junk\r\n"), std::wstring(L"\r\r\n"),
              std::wstring(L"\0*FileShred*\r\n", 14)})
            cases.push_back({stays});
        for (const wchar_t* goes :
             {L"report", L"windows/temp/x.tmp", L"windows/setup.log", L"folder/nt/setup.log"})
            cases.push_back({line(std::filesystem::path(goes).make_preferred().wstring()), goes, false});
        // To the system itself the last two are other names than "report".
        for (const wchar_t* missing : {L"nothing", L"no folder\\report", L"report.", L"report "})
            cases.push_back({line(missing), L"", false});
        // What the system needs, "bootmgr" beside the Windows folder by whatever path, and what is unclear.
        for (const wchar_t* name :
             {L"folder\\nt\\win.ini", L"folder\\nt\\system32\\config\\system", L"bootmgr", L"windows",
              L"windows\\ForceDelete.txt", L"windows\\sysmaint-boot.log", L"windows\\win.ini",
              L"windows\\System32\\ntdll.dll", L"windows\\temp", L"ntuser.dat"})
            cases.push_back({line(name)});
        for (const wchar_t* name :
             {L"keep\\report", L"folder", L"folder\\", L"folder\\..\\report", L".\\report", L"folder/x",
              L"rep*", L"repor?", L"report:stream", L"report::$DATA", L"re\tport", L"report\\", L"\\report"})
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
    EXPECT_NE(log().find(L"left: not the plain path of a file on a drive: *FileShred*<09>*"), log().npos);
    EXPECT_NE(log().find(L"\\re<09>port*"), std::wstring::npos);
    const std::wregex entry(L"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d [a-z\\d].*");
    std::wistringstream entries(log().substr(1)); // behind the mark
    for (std::wstring text; std::getline(entries, text);) {
        EXPECT_TRUE(text.size() < 33000 && text.back() == L'\r') << text.size();
        text.resize(std::min<std::size_t>(text.size() - 1, 200)); // the expressions recurse
        EXPECT_TRUE(std::regex_match(text, entry)) << text;
    }
}

struct OddCase
{
    std::string given;
    std::wstring left;
    bool goes = false; // "report"
    bool next = true;  // "folder\x" does
};

struct BootOddLineTest : BootRunTest
{
    [[nodiscard]] std::vector<OddCase> cases() const
    {
        const std::wstring cut = line(L"keep").substr(0, 21) + L"?\r\n";
        const std::wstring earlyCut = line(L"keep").substr(0, 11) + L"?\r\n";
        const std::string kanji = bytesOf(line(L"\x65E5\x672C"));
        const std::size_t inside = kanji.find("\xE5\x65") + 1;
        const std::string split = kanji.substr(0, inside) + v + kanji.substr(inside);
        const std::string name = bytesOf(line(L"folder\\n" + textOf("x" + v + "x")));
        std::string missing;
        for (int i = 0; i < 100000; ++i)
            missing += bytesOf(lineOf(L"\\??\\Q:\\" + std::to_wstring(i)));
        std::vector<OddCase> cases = {
            {'x' + missing + v + w, L"x?\r\n" + textOf(missing), true},
            {early + v + w, earlyCut, true},
            {v + early + w, earlyCut, true},
            {early + early + early + v + w, torn(early + early + early + '\0'), true},
            {w + 'x' + v, L"x?\r\n", true},
            {w + "\xEF\xBB\xBF" + v, L"\xBBEF\xBF?\r\n", true},
            {v.substr(0, v.size() - 1) + w, textOf(v.substr(0, v.size() - 2)) + L"\x010A?\r\n"},
            {odd + v + distant + w, torn(odd + v + '\0') + textOf(distant)},
            {odd + v + odd + distant + w, torn(odd + v + '\0') + cut + textOf(distant)},
            {odd + odd + odd + v + distant + w, cut + cut + torn(odd + v + '\0') + textOf(distant)},
            {odd + v + w, torn(odd + v + w + '\0'), false, false}, // a torn name may be all that follows
            {odd + v + b.substr(41) + w, textOf(odd + v + b.substr(41))},
            {w + odd + v, torn(odd + v + '\0')}, // the last ones stay as they are when they get an end
            {w + odd + v.substr(0, v.size() - 1), torn(odd + v.substr(0, v.size() - 1))},
            {split + w, textOf(split)}, // a line for one file, to the byte
            {name + w, textOf(name)},
            {odd + name + w, cut + textOf(name)}};
        for (const std::size_t more : {0U, 1U, 2U, 4U, 8U, 12U}) {
            const std::string whole = name.substr(0, name.find(v) + v.size() + more);
            cases.push_back(
                {whole + distant + w, torn(whole + std::string(1 - more % 2, '\0')) + textOf(distant)});
        }
        return cases;
    }
    static std::wstring torn(const std::string& line) { return textOf(line) + L"?\r\n"; }

    const std::string v = bytesOf(line(L"report")), w = bytesOf(line(L"folder\\x")),
                      b = bytesOf(line(L"keep"));
    const std::string odd = b.substr(0, 41); // inside a name, as which what follows may count
    const std::string early = b.substr(0, 21);
    // Too long for a name.
    const std::string distant = bytesOf(lineOf(L"\\??\\Q:\\" + std::wstring(300, L'q')));
};

/// Writers that were interrupted inside a character, and names of files that look the same.
TEST_F(BootOddLineTest, FindsLinesAtOddBytes)
{
    for (const OddCase& c : cases()) {
        SCOPED_TRACE(c.given.substr(0, 200));
        Files expected = files();
        write(L"windows/ForceDelete.txt", bytesOf(kHeader) + c.given);
        EXPECT_EQ(run().isListEmpty, false);
        expected.erase(c.next ? L"folder/x" : L"");
        expected.erase(c.goes ? L"report" : L"");
        for (int time = 0; time < 2; ++time, run()) { // another run changes nothing more
            EXPECT_EQ(files(), expected);
            EXPECT_TRUE(list() == c.left) << list().substr(0, 300);
        }
        write(L"report", "again");
        write(L"folder/x", "again");
    }
    EXPECT_NE(log().find(L"left: another line may begin in the middle of it"), std::wstring::npos);
}
