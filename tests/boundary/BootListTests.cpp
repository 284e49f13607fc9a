#include <cwchar>
#include <tuple>

#include "support/Threads.h"
#include "support/Wipe.h"

namespace {
const std::wstring kHeader(L"\0\0\r\n", 4);
const std::wstring kMissing = L"C:\\no such folder\\";

std::wstring lineOf(const std::wstring& path, const wchar_t* numbers = L"1*\t*1")
{
    return L"*FileShred*\t*\\??\\" + path + L"*\t*" + numbers + L"\r\n";
}

std::wstring missingOf(const std::wstring& writer, int number)
{
    return kMissing + writer + std::to_wstring(number);
}

/// Has `lines` files wiped that are not there, so that each gets its line.
void writeLines(const std::wstring& writer, int lines)
{
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    for (int i = 0; i < lines; ++i)
        EXPECT_NE(wiper->Wipe(nullptr, nullptr, kWipeFile, missingOf(writer, i).c_str(), nullptr, nullptr, 1,
                              1, nullptr),
                  0);
}

/// One header, and each line whole and once.
void expectLines(std::wstring list, std::initializer_list<const wchar_t*> writers, int lines)
{
    for (const wchar_t* writer : writers)
        for (int i = 0; i < lines; ++i) {
            const std::wstring line = lineOf(missingOf(writer, i));
            const std::size_t at = list.find(line);
            ASSERT_NE(at, std::wstring::npos) << line;
            list.erase(at, line.size());
        }
    EXPECT_EQ(list, kHeader);
}

using BootListTest = WipeTest;
} // namespace

/// What the second process of the next test does; by itself nothing.
TEST(BootList, DISABLED_SecondProcess)
{
    writeLines(L"process", 150);
}

TEST_F(BootListTest, ThreadsProcessesAndReadersLoseNoLine)
{
    for (int round = 0; round < 10; ++round) { // both find the list new
        onThreadsAtOnce(2, [](int thread) { writeLines(thread == 0 ? L"a" : L"b", 3); });
        expectLines(takeBootList(), {L"a", L"b"}, 3);
    }

    const HANDLE child = startSelf(
        {L"--gtest_also_run_disabled_tests", L"--gtest_brief=1", L"--gtest_filter=BootList.DISABLED_*"});
    onThreadsAtOnce(3, [&](int thread) {
        while (thread == 2 && WaitForSingleObject(child, 1) == WAIT_TIMEOUT)
            readBytes(bootListPath());
        for (int i = 0; i < 10000 && ForceDeleteIsScheduled(missingOf(L"process", 0).c_str()) == 0; ++i)
            Sleep(1);
        writeLines(thread == 0 ? L"a" : L"b", thread == 2 ? 0 : 150);
    });
    EXPECT_EQ(exitCodeOf(child), 0U);
    EXPECT_EQ(ForceDeleteIsScheduled(missingOf(L"PROCESS", 149).c_str()), 1);
    EXPECT_EQ(ForceDeleteIsScheduled(missingOf(L"process", 15).c_str()), 1);
    EXPECT_EQ(ForceDeleteIsScheduled((kMissing + L"process").c_str()), 0);
    expectLines(takeBootList(), {L"a", L"b", L"process"}, 150);
}

TEST_F(BootListTest, TakesPlainPathsOfFilesAlone)
{
    const std::wstring there = at(L"there");
    writeBytes(there, Bytes(10, 0xE5));
    CreateDirectoryW(at(L"folder").c_str(), nullptr);
    const std::wstring volume = L"Volume{01234567-89ab-cdef-0123-456789ABCDEF}\\";
    struct Case
    {
        std::wstring given, listed; // empty: refused
        UINT driveType = DRIVE_FIXED;
        const wchar_t* device = L"\\Device\\HarddiskVolume7";
        DWORD attributes = 0;
    };
    std::vector<Case> cases = {
        {there, there},
        {L"\\\\?\\" + there, there},
        {L"\\??\\" + there, there},
        {L"C:/no such folder/./x.", kMissing + L"x."},
        {L"\\\\?\\" + volume + L"x", volume + L"x"},
        {L"\\\\?\\" + volume, L""},
        {there, L"", DRIVE_REMOTE},
        {there, L"", DRIVE_FIXED, L"\\??\\C:\\somewhere"},
        {there, L"", DRIVE_FIXED, L"\\Device\\HarddiskVolume7", FILE_ATTRIBUTE_REPARSE_POINT},
        {at(L"folder"), L""},
        {bootListPath(), L""},
    };
    for (const wchar_t* refused :
         {L"", L"C:\\", L"\\\\.\\PhysicalDrive0", L"\\\\?\\PhysicalDrive0", L"\\\\.\\pipe\\x",
          L"\\\\server\\share\\x", L"\\\\?\\Volume{01234567}\\x", L"\\\\?\\C:\\a\\..\\b", L"\\\\?\\C:\\a/b",
          L"C:\\none\\a*", L"C:\\none\\a?b", L"C:\\none\\a<", L"C:\\none\\a\tb", L"C:\\none\\a\x1f",
          L"C:\\none\\a:stream", L"C:\\none\\a\\",
          L"C:\\none\\a\r\n*FileShred*\t*\\??\\C:\\precious*\t*1*\t*1"})
        cases.push_back({refused, L""});
    files.setHook([](auto open, auto... all) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return std::get<5>(std::tuple(all...)) == kOpenToWipe ? INVALID_HANDLE_VALUE : open(all...);
    });
    const Case* now = nullptr;
    Replaced<"GetDriveTypeW", decltype(&GetDriveTypeW)> types([&](auto...) { return now->driveType; });
    Replaced<"QueryDosDeviceW", decltype(&QueryDosDeviceW)> devices([&](auto, LPCWSTR, LPWSTR target, DWORD) {
        std::wcscpy(target, now->device);
        return 1UL;
    });
    Attributes attributes([&](auto original, LPCWSTR path) { // what is not there has all bits
        return original(path) | now->attributes;
    });
    Replaced<"DeleteFileW", decltype(&DeleteFileW)> removals([](auto...) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.given << " on a drive of type " << c.driveType);
        now = &c;
        writeBytes(bootListPath(), {'x', 0, '\r', 0, '\n', 0});
        wiper->setNeedsReboot(0);
        EXPECT_NE(wipe(kWipeFile, c.given), 0);
        EXPECT_EQ(ForceDeleteIsScheduled(c.given.c_str()), c.listed.empty() ? 0 : 1);
        EXPECT_EQ(takeBootList(), L"x\r\n" + (c.listed.empty() ? L"" : lineOf(c.listed)));
        EXPECT_EQ(wiper->getNeedsReboot(), c.listed.empty() ? 0U : 1U);
    }
}

TEST_F(BootListTest, IsWrittenByteForByte)
{
    const std::wstring missing = at(L"no such file.txt");
    std::wstring opened;
    files.setHook([&](auto original, LPCWSTR name, DWORD access, DWORD share, auto... rest) {
        if (access == GENERIC_WRITE && share == FILE_SHARE_WRITE)
            opened = name;
        return original(name, access, share, rest...);
    });
    EXPECT_EQ(wipe(kWipeFile, missing), 2);
    EXPECT_EQ(opened, bootListPath().insert(bootListPath().rfind(L'\\'), L"\\"));
    EXPECT_EQ(wipe(kWipeFile, missing, 3, 0xFFFFFFFF), 2); // numbers are signed
    EXPECT_EQ(takeBootList(), kHeader + lineOf(missing) + lineOf(missing, L"3*\t*-1"));
    writeBytes(bootListPath(), {});
    wipe(kWipeFile, missing, 2, 7);
    EXPECT_EQ(takeBootList(), kHeader + lineOf(missing, L"2*\t*7"));
    wchar_t before[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, before);
    SetCurrentDirectoryW(folder.c_str());
    writeBytes(bootListPath(), {'x', 0});
    EXPECT_EQ(wipe(kWipeFile, L"no such file.txt"), 2); // the boot-time program has no current folder
    EXPECT_EQ(wipe(kWipeFile, folder + L"/tree\\..\\no such file.txt"), 2);
    SetCurrentDirectoryW(before);
    EXPECT_EQ(takeBootList(), L"x" + lineOf(missing) + lineOf(missing));
}

/// One that others hold, and a disk that takes half of a line, leave it as it was; the caller can tell.
TEST_F(BootListTest, StaysWholeWhenALineCannotBeAdded)
{
    const std::wstring missing = at(L"no such file.txt");
    writeBytes(bootListPath(), {'x', 0, '\r', 0, '\n', 0});
    Win32Handle held(
        ::CreateFileW(bootListPath().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    const auto expect = [&](DWORD code) {
        wiper->setNeedsReboot(0);
        EXPECT_EQ(wipe(kWipeFile, missing), 2);
        EXPECT_EQ(wiper->getNeedsReboot(), 1U);
        EXPECT_EQ(ForceDeleteIsScheduled(missing.c_str()), 0);
        EXPECT_EQ(GetLastError(), code);
    };
    expect(ERROR_SHARING_VIOLATION);
    held.reset();
    Writes writes([](auto original, HANDLE file, LPCVOID data, DWORD size, auto... rest) {
        return original(file, data, size / 2, rest...);
    });
    expect(ERROR_SUCCESS);
    EXPECT_EQ(takeBootList(), L"x\r\n");
}
