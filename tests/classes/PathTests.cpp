#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "support/Links.h"
#include "support/Scan.h"

namespace {
template <class Operation>
long bareCodeOf(Operation&& operation)
{
    try {
        operation();
    } catch (long code) {
        return code;
    }
    return ERROR_SUCCESS;
}
} // namespace

// Each form and the file that it names, from a known current folder.
TEST(Paths, SettleWhatTheyName)
{
    const std::wstring folder = scratchFolder();
    CreateDirectoryW((folder + L"\\sub").c_str(), nullptr);
    SetCurrentDirectoryW(folder.c_str());
    const std::wstring drive = folder.substr(0, 2);
    const std::wstring literal = L"\\\\?\\" + folder;
    const std::wstring root = L"\\\\?\\" + drive + L"\\";
    std::wstring slashes = folder;
    std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
    const struct
    {
        std::wstring path;
        std::wstring settled;
        bool isSettled;
    } rows[] = {
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
    for (const auto& row : rows) {
        EXPECT_EQ(settledPath(row.path), row.settled) << ::testing::PrintToString(row.path);
        EXPECT_EQ(isSettled(row.path), row.isSettled) << ::testing::PrintToString(row.path);
        if (row.path.size() > 1 && row.path.back() == L'.') {
            EXPECT_EQ(Win32Path(row.path.c_str()).get(), row.settled);
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

// What stands under a name, and what it is by the time that it is opened.
TEST(OpenedItself, TellsALinkFromWhatItLeadsTo)
{
    const std::wstring folder = scratchFolder();
    CreateDirectoryW((folder + L"\\real").c_str(), nullptr);
    std::ofstream((folder + L"\\file").c_str()) << "x";
    makeLink(folder + L"\\real", folder + L"\\link");
    const struct
    {
        const wchar_t* name;
        bool isFolder;
        bool isLink;
        long code;
    } rows[] = {
        {L"\\real", true, false, 0},
        {L"\\file", false, false, 0},
        {L"\\link", true, true, 0},
        {L"\\missing", false, false, ERROR_FILE_NOT_FOUND},
        {L"\\file\\x", false, false, ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : rows) {
        const long code = bareCodeOf([&] {
            const OpenedItself opened((folder + row.name).c_str());
            EXPECT_EQ(opened.isFolder(), row.isFolder) << ::testing::PrintToString(row.name);
            EXPECT_EQ(opened.isLink(), row.isLink) << ::testing::PrintToString(row.name);
        });
        EXPECT_EQ(code, row.code) << ::testing::PrintToString(row.name);
    }
}

TEST(HeldFolders, StayWhereTheyAreFromTheRootDown)
{
    const std::wstring above = scratchFolder();
    const std::wstring root = above + L"\\root";
    for (const wchar_t* name : {L"", L"\\a", L"\\a\\b", L"\\a\\bb", L"\\c"})
        CreateDirectoryW((root + name).c_str(), nullptr);
    std::ofstream((root + L"\\file").c_str()) << "x";
    makeLink(root + L"\\c", root + L"\\link");
    makeLink(root, above + L"\\link");
    const auto canMove = [&](const std::wstring& name) {
        const std::wstring moved = root + name + L"-moved";
        return MoveFileW((root + name).c_str(), moved.c_str()) != 0 &&
               MoveFileW(moved.c_str(), (root + name).c_str()) != 0;
    };
    const std::wstring literal = L"\\\\?\\" + root;
    const auto all = [&](const std::wstring& folder) { return literal + folder; };
    const struct
    {
        std::wstring root;
        std::wstring folder;
        long code;
        const wchar_t* held; // of "", a, b (in a), bb (in a), c
    } rows[] = {
        {literal, all(L"\\a\\b"), 0, L"rab"},
        {literal, all(L"\\a\\bb"), 0, L"raB"}, // what is no longer needed is let go
        {literal, all(L"\\c"), 0, L"rc"},
        {literal, all(L"\\missing\\x"), ERROR_FILE_NOT_FOUND, L"r"},
        {literal, all(L"\\link\\x"), kStoppedOnSymlink, L"r"},
        {literal, all(L"\\file"), ERROR_DIRECTORY, L"r"},
        {literal, all(L"\\a\\b"), 0, L"rab"},
        {all(L"\\a"), all(L"\\a\\b"), 0, L"ab"}, // another root
        {all(L"\\a"), all(L"\\a"), 0, L"a"},
        {root + L"\\", root + L"\\a\\b", 0, L"rab"},
        {all(L"\\a\\b"), all(L"\\a\\bb"), ERROR_INVALID_PARAMETER, L"rab"},
        {L"", all(L"\\a"), ERROR_INVALID_PARAMETER, L"rab"},
        {above + L"\\link", above + L"\\link\\c", 0, L"rc"}, // a root may be a link
    };
    HeldFolders held;
    for (const auto& row : rows) {
        EXPECT_EQ(bareCodeOf([&] { held.hold(row.root, row.folder); }), row.code)
            << ::testing::PrintToString(row.folder);
        const std::wstring names = row.held;
        const auto isHeld = [&](wchar_t mark) { return names.find(mark) != std::wstring::npos; };
        EXPECT_EQ(canMove(L"\\a\\b"), !isHeld(L'b')) << ::testing::PrintToString(row.folder);
        EXPECT_EQ(canMove(L"\\a\\bb"), !isHeld(L'B')) << ::testing::PrintToString(row.folder);
        EXPECT_EQ(canMove(L"\\c"), !isHeld(L'c')) << ::testing::PrintToString(row.folder);
        EXPECT_EQ(canMove(L"\\a"), !isHeld(L'a')) << ::testing::PrintToString(row.folder);
        EXPECT_EQ(canMove(L""), !isHeld(L'r')) << ::testing::PrintToString(row.folder);
    }
    held = HeldFolders();
    EXPECT_TRUE(canMove(L""));
}
