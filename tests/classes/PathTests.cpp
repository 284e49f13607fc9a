#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "support/Links.h"
#include "support/Scan.h"

// Each form and the file that it names, from a known current folder.
TEST(Paths, SettleWhatTheyName)
{
    const std::wstring folder = scratchFolder({L"\\sub"});
    SetCurrentDirectoryW(folder.c_str());
    const std::wstring drive = folder.substr(0, 2);
    const std::wstring literal = L"\\\\?\\" + folder;
    const std::wstring root = L"\\\\?\\" + drive + L"\\";
    std::wstring slashes = folder;
    std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
    const std::tuple<std::wstring, std::wstring, bool> rows[] = {
        {L"", L"", true},
        {L"\\\\?\\C:\\a\\..\\b/.", L"\\\\?\\C:\\a\\..\\b/.", true}, // literal: to the letter
        {L"\\??\\C:\\report.", L"\\??\\C:\\report.", true},
        {L"C:\\a\\.\\b\\..\\report.", L"\\\\?\\C:\\a\\report.", true},
        {L"C:\\..\\..\\x ", L"\\\\?\\C:\\x ", true},
        {L"C:\\", L"\\\\?\\C:\\", true},
        {L"C:\\a\\", L"\\\\?\\C:\\a\\", true},
        {L"\\\\server\\share\\..\\..\\nul", L"\\\\?\\UNC\\server\\share\\nul", true},
        {L"C:/a/report.", L"\\\\?\\C:\\a\\report.", false},
        {L"//server/share/x", L"\\\\?\\UNC\\server\\share\\x", false},
        {L"\\\\.\\C:\\a\\..\\..\\report.", L"\\\\?\\C:\\report.", false},
        {L"//?/C:/a/./report.", L"\\\\?\\C:\\a\\report.", false},
        {L"\\\\?/C:\\report.", L"\\\\?\\C:\\report.", false},
        {L"\\\\.\\C:", L"\\\\?\\C:", false},
        {L"\\\\.\\C:\\", L"\\\\?\\C:\\", false},
        {L"\\\\.\\PhysicalDrive0", L"\\\\?\\PhysicalDrive0", false},
        {L"\\\\.\\unc\\server\\share\\..\\..\\..\\x", L"\\\\?\\unc\\server\\share\\x", false},
        {L"report.", literal + L"\\report.", false},
        {L".", literal, false},
        {L".\\sub\\", literal + L"\\sub\\", false},
        {L"sub\\..\\nul", literal + L"\\nul", false},
        {drive, literal, false},
        {drive + L"report.", literal + L"\\report.", false},
        {drive + L"sub/../x", literal + L"\\x", false},
        {L"\\a\\report.", root + L"a\\report.", false},
        {L"/", root, false},
        {slashes + L"/report.", literal + L"\\report.", false},
    };
    for (const auto& [path, settled, wasSettled] : rows) {
        SCOPED_TRACE(testing::PrintToString(path));
        EXPECT_EQ(settledPath(path), settled);
        EXPECT_EQ(isSettled(path), wasSettled);
        if (path.size() > 1 && path.back() == L'.') {
            EXPECT_EQ(Win32Path(path.c_str()).get(), settled);
        }
    }
    // Below a drive that is not the current one.
    SetEnvironmentVariableW(L"=Z:", L"Z:\\tmp");
    EXPECT_EQ(settledPath(L"z:report."), L"\\\\?\\Z:\\tmp\\report.");
    SetEnvironmentVariableW(L"=Z:", nullptr);
    EXPECT_EQ(settledPath(L"Z:report."), L"\\\\?\\Z:\\report.");
    SetCurrentDirectoryW((drive + L"\\").c_str());
    EXPECT_EQ(settledPath(L"report."), root + L"report.");
    EXPECT_EQ(settledPath(L".."), root);
}

TEST(HeldFolders, StayWhereTheyAreFromTheRootDown)
{
    const std::wstring above =
        scratchFolder({L"\\root", L"\\root\\a", L"\\root\\a\\b", L"\\root\\a\\bb", L"\\root\\c"});
    const std::wstring root = above + L"\\root";
    std::ofstream((root + L"\\file").c_str()) << "x";
    makeLink(root + L"\\c", root + L"\\link");
    makeLink(root, above + L"\\link");
    const auto move = [&](const std::wstring& from, const std::wstring& to) {
        return MoveFileW((root + from).c_str(), (root + to).c_str()) != 0;
    };
    // The letters of the folders that cannot be moved.
    const auto heldNow = [&] {
        std::string held;
        for (const auto& [letter, name] :
             {std::pair('r', L""), std::pair('a', L"\\a"), std::pair('b', L"\\a\\b"),
              std::pair('B', L"\\a\\bb"), std::pair('c', L"\\c")})
            if (!move(name, L"-moved") || !move(L"-moved", name))
                held += letter;
        return held;
    };
    const std::wstring literal = L"\\\\?\\" + root;
    const std::tuple<std::wstring, std::wstring, long, const char*> rows[] = {
        {literal, literal + L"\\a\\b", 0, "rab"},
        {literal, literal + L"\\a\\bb", 0, "raB"}, // what is no longer needed is let go
        {literal, literal + L"\\c", 0, "rc"},
        {literal, literal + L"\\missing\\x", ERROR_FILE_NOT_FOUND, "r"},
        {literal, literal + L"\\link\\x", kStoppedOnSymlink, "r"},
        {literal, literal + L"\\file", ERROR_DIRECTORY, "r"},
        {literal, literal + L"\\a\\b", 0, "rab"},
        {literal + L"\\a", literal + L"\\a\\b", 0, "ab"}, // another root
        {literal + L"\\a", literal + L"\\a", 0, "a"},
        {root + L"\\", root + L"\\a\\b", 0, "rab"},
        {literal + L"\\a\\b", literal + L"\\a\\bb", ERROR_INVALID_PARAMETER, "rab"},
        {L"", literal + L"\\a", ERROR_INVALID_PARAMETER, "rab"},
        {above + L"\\link", above + L"\\link\\c", 0, "rc"}, // a root may be a link
    };
    HeldFolders held;
    for (const auto& [top, folder, expected, names] : rows) {
        SCOPED_TRACE(testing::PrintToString(folder));
        long code = 0;
        try {
            held.hold(top, folder);
        } catch (long raised) {
            code = raised;
        }
        EXPECT_EQ(code, expected);
        EXPECT_EQ(heldNow(), names);
    }
    held = HeldFolders();
    EXPECT_EQ(heldNow(), "");
}
