#include <cwchar>
#include <set>
#include <tuple>

#include "support/Threads.h"
#include "support/Wipe.h"

namespace {
const std::wstring kHeader(L"\0\0\r\n", 4);
const std::wstring kMissing = L"C:\\no such folder\\";

std::wstring lineOf(const std::wstring& path, const wchar_t* numbers = L"3*\t*1")
{
    return L"*FileShred*\t*\\??\\" + path + L"*\t*" + numbers + L"\r\n";
}

/// Has `lines` files wiped that are not there, so that each gets its line.
void writeLines(const std::wstring& writer, int lines)
{
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    for (int i = 0; i < lines; ++i)
        EXPECT_NE(wiper->Wipe(nullptr, nullptr, kWipeFile, (kMissing + writer + std::to_wstring(i)).c_str(),
                              nullptr, nullptr, 3, 1, nullptr),
                  0);
}

/// One header, and each line whole and once.
void expectWhole(const std::wstring& list, std::size_t lines)
{
    ASSERT_EQ(list.substr(0, kHeader.size()), kHeader);
    std::set<std::wstring> seen;
    for (std::size_t at = kHeader.size(), end; at < list.size(); at = end + 2) {
        end = std::min(list.find(L"\r\n", at), list.size());
        const std::size_t name = list.find(kMissing, at);
        const std::wstring path = list.substr(name, list.find(L'*', name) - name);
        EXPECT_EQ(list.substr(at, end + 2 - at), lineOf(path));
        EXPECT_TRUE(seen.insert(path).second) << path;
    }
    EXPECT_EQ(seen.size(), lines);
}

class BootListTest : public WipeTest
{
protected:
    long fail(const std::wstring& path, std::uint32_t method = kWipeGutmann, std::uint32_t passes = 1)
    {
        return wipe(kWipeFile, path, method, passes);
    }

    const std::wstring missing = at(L"no such file.txt");
};
} // namespace

/// What the second process of the next test does; by itself nothing.
TEST(BootList, DISABLED_SecondProcess)
{
    writeLines(L"process", 150);
}

TEST_F(BootListTest, ThreadsProcessesAndReadersLoseNoLine)
{
    for (int round = 0; round < 10; ++round) { // both find the list new
        onThreadsAtOnce(2, [](int thread) { writeLines(L"new" + std::to_wstring(thread), 3); });
        expectWhole(takeBootList(), 6);
    }

    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring command =
        L"\"" + std::wstring(program) +
        L"\" --gtest_also_run_disabled_tests --gtest_brief=1 --gtest_filter=BootList.DISABLED_*";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child{};
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &child));
    onThreadsAtOnce(3, [&](int thread) {
        while (thread == 2 && WaitForSingleObject(child.hProcess, 1) == WAIT_TIMEOUT)
            readBytes(bootListPath());
        for (int i = 0; i < 10000 && ForceDeleteIsScheduled((kMissing + L"process0").c_str()) == 0; ++i)
            Sleep(1);
        writeLines(L"thread" + std::to_wstring(thread), thread == 2 ? 0 : 150);
    });
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    EXPECT_EQ(ForceDeleteIsScheduled((kMissing + L"PROCESS149").c_str()), 1);
    EXPECT_EQ(ForceDeleteIsScheduled((kMissing + L"process15").c_str()), 1);
    EXPECT_EQ(ForceDeleteIsScheduled((kMissing + L"process").c_str()), 0);
    expectWhole(takeBootList(), 450);
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
    const Case cases[] = {
        {there, there},
        {L"\\\\?\\" + there, there},
        {L"\\??\\" + there, there},
        {L"C:/no such folder/./x.", kMissing + L"x."},
        {L"\\\\?\\" + volume + L"x", volume + L"x"},
        {L"\\\\?\\" + volume, L""},
        {L"\\\\?\\Volume{01234567}\\x", L""},
        {there, L"", DRIVE_REMOTE},
        {there, L"", DRIVE_FIXED, L"\\??\\C:\\somewhere"},
        {there, L"", DRIVE_FIXED, L"\\Device\\HarddiskVolume7", FILE_ATTRIBUTE_REPARSE_POINT},
        {at(L"folder"), L""},
        {L"C:\\", L""},
        {L"", L""},
        {L"\\\\.\\PhysicalDrive0", L""},
        {L"\\\\?\\PhysicalDrive0", L""},
        {L"\\\\.\\pipe\\x", L""},
        {L"\\\\server\\share\\x", L""},
        {kMissing + L"a*", L""},
        {kMissing + L"a?b", L""},
        {kMissing + L"a<", L""},
        {kMissing + L"a\tb", L""},
        {kMissing + L"a\r\n*FileShred*\t*\\??\\C:\\precious*\t*1*\t*1", L""},
        {kMissing + L"a\x1f", L""},
        {kMissing + L"a:stream", L""},
        {kMissing + L"a\\", L""},
        {L"\\\\?\\C:\\a\\..\\b", L""},
        {L"\\\\?\\C:\\a/b", L""},
        {bootListPath(), L""},
    };
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
    Replaced<"GetFileAttributesW", decltype(&GetFileAttributesW)> attributes(
        [&](auto original, LPCWSTR path) { // all bits are those of what is not there
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
        EXPECT_NE(fail(c.given), 0);
        EXPECT_EQ(ForceDeleteIsScheduled(c.given.c_str()), c.listed.empty() ? 0 : 1);
        EXPECT_EQ(takeBootList(), L"x\r\n" + (c.listed.empty() ? L"" : lineOf(c.listed)));
        EXPECT_EQ(wiper->getNeedsReboot(), c.listed.empty() ? 0U : 1U);
    }
}

TEST_F(BootListTest, IsWrittenByteForByte)
{
    std::wstring opened;
    files.setHook([&](auto original, LPCWSTR name, DWORD access, DWORD share, auto... rest) {
        if (access == GENERIC_WRITE && share == FILE_SHARE_WRITE)
            opened = name;
        return original(name, access, share, rest...);
    });
    EXPECT_EQ(fail(missing), 2);
    EXPECT_EQ(opened, bootListPath().insert(bootListPath().rfind(L'\\'), L"\\"));
    EXPECT_EQ(fail(missing, 1, 0xFFFFFFFF), 2); // numbers are signed
    EXPECT_EQ(takeBootList(), kHeader + lineOf(missing) + lineOf(missing, L"1*\t*-1"));
    writeBytes(bootListPath(), {});
    fail(missing, 2, 7);
    EXPECT_EQ(takeBootList(), kHeader + lineOf(missing, L"2*\t*7"));
    wchar_t before[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, before);
    SetCurrentDirectoryW(folder.c_str());
    writeBytes(bootListPath(), {'x', 0});
    EXPECT_EQ(fail(L"no such file.txt"), 2); // the boot-time program has no current folder
    EXPECT_EQ(fail(folder + L"/tree\\..\\no such file.txt"), 2);
    SetCurrentDirectoryW(before);
    EXPECT_EQ(takeBootList(), L"x" + lineOf(missing) + lineOf(missing));
}

/// One that others hold, and a disk that takes half of a line, leave it as it was; the caller can tell.
TEST_F(BootListTest, StaysWholeWhenALineCannotBeAdded)
{
    writeBytes(bootListPath(), {'x', 0, '\r', 0, '\n', 0});
    const HANDLE held =
        ::CreateFileW(bootListPath().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    const auto expect = [&](DWORD code) {
        wiper->setNeedsReboot(0);
        EXPECT_EQ(fail(missing), 2);
        EXPECT_EQ(wiper->getNeedsReboot(), 1U);
        EXPECT_EQ(ForceDeleteIsScheduled(missing.c_str()), 0);
        EXPECT_EQ(GetLastError(), code);
    };
    expect(ERROR_SHARING_VIOLATION);
    CloseHandle(held);
    Writes writes([](auto original, HANDLE file, LPCVOID data, DWORD size, auto... rest) {
        return original(file, data, size / 2, rest...);
    });
    expect(ERROR_SUCCESS);
    EXPECT_EQ(takeBootList(), L"x\r\n");
}
