#include "core/win32/utils/paths/include/Win32Path.h"
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
        {slashes + L"/report.", literal + L"\\report.", false}};
    for (const auto& [path, settled, wasSettled] : rows) {
        SCOPED_TRACE(testing::PrintToString(path));
        EXPECT_EQ(settledPath(path), settled);
        EXPECT_EQ(isSettled(path), wasSettled);
        if (path.size() > 1 && path.back() == L'.') {
            EXPECT_EQ(Win32Path(path.c_str()).get(), settled);
        }
    }
}

TEST(Paths, SettleBelowADriveThatIsNotTheCurrentOne)
{
    SetEnvironmentVariableW(L"=Z:", L"Z:\\tmp");
    EXPECT_EQ(settledPath(L"z:report."), L"\\\\?\\Z:\\tmp\\report.");
    SetEnvironmentVariableW(L"=Z:", nullptr);
    EXPECT_EQ(settledPath(L"Z:report."), L"\\\\?\\Z:\\report.");
    const std::wstring root = scratchFolder().substr(0, 2) + L"\\";
    SetCurrentDirectoryW(root.c_str());
    EXPECT_EQ(settledPath(L"report."), L"\\\\?\\" + root + L"report.");
    EXPECT_EQ(settledPath(L".."), L"\\\\?\\" + root);
}
