#include <cwchar>
#include <map>

#include "support/Threads.h"
#include "support/Wipe.h"

namespace {
const std::wstring kHeader(L"\0\0\r\n", 4);
const std::wstring kMissing = L"C:\\no such folder\\";

std::wstring lineOf(const std::wstring& path, const wchar_t* numbers)
{
    return L"*FileShred*\t*\\??\\" + path + L"*\t*" + numbers + L"\r\n";
}

long fail(IWiper& wiper, const std::wstring& path, std::uint32_t method = 3, std::uint32_t passes = 1)
{
    return wiper.Wipe(nullptr, nullptr, kWipeFile, path.c_str(), nullptr, nullptr, method, passes, nullptr);
}

/// Has `lines` files wiped that are not there, so that each gets its line.
void writeLines(const std::wstring& writer, int lines)
{
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    for (int i = 0; i < lines; ++i)
        EXPECT_NE(fail(*wiper, kMissing + writer + std::to_wstring(i)), 0);
}

/// One header, and each line whole and once.
void expectWhole(const std::wstring& list, std::size_t lines)
{
    ASSERT_EQ(list.substr(0, kHeader.size()), kHeader);
    std::map<std::wstring, int> seen;
    for (std::size_t at = kHeader.size(), end; at < list.size(); at = end) {
        end = list.find(L"\r\n", at);
        ASSERT_NE(end, std::wstring::npos);
        const std::wstring line = list.substr(at, (end += 2) - at);
        const std::size_t name = line.find(kMissing), star = line.find(L'*', name);
        ASSERT_TRUE(name != std::wstring::npos && star != std::wstring::npos);
        EXPECT_EQ(line, lineOf(line.substr(name, star - name), L"3*\t*1"));
        EXPECT_EQ(++seen[line], 1);
    }
    EXPECT_EQ(seen.size(), lines);
}
} // namespace

/// What the second process of the next test does; by itself nothing.
TEST(BootList, DISABLED_SecondProcess)
{
    writeLines(L"process", 150);
}

TEST(BootList, ThreadsProcessesAndReadersLoseNoLine)
{
    takeBootList();
    for (int round = 0; round < 10; ++round) { // both find the list new
        onThreadsAtOnce(2, [](int thread) { writeLines(L"new" + std::to_wstring(thread), 3); });
        expectWhole(takeBootList(), 6);
    }

    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(program) +
                           L"\" --gtest_also_run_disabled_tests --gtest_filter=BootList.DISABLED_Second*";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child{};
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &child));
    bool done = false;
    onThreadsAtOnce(3, [&](int thread) {
        if (thread < 2) {
            for (int i = 0; i < 10000 && ForceDeleteIsScheduled((kMissing + L"process0").c_str()) == 0; ++i)
                Sleep(1);
            writeLines(L"thread" + std::to_wstring(thread), 150);
            return;
        }
        while (!done) {
            readBytes(bootListPath());
            done = WaitForSingleObject(child.hProcess, 1) == WAIT_OBJECT_0;
        }
    });
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    EXPECT_EQ(ForceDeleteIsScheduled((kMissing + L"PROCESS149").c_str()), 1);
    EXPECT_EQ(ForceDeleteIsScheduled((kMissing + L"process15").c_str()), 1);
    EXPECT_EQ(ForceDeleteIsScheduled((kMissing + L"process").c_str()), 0);
    expectWhole(takeBootList(), 450);
}

TEST(BootList, TakesPlainPathsOfFilesAlone)
{
    const std::wstring folder = scratchFolder();
    const std::wstring there = folder + L"\\there";
    writeBytes(there, Bytes(10, 0xE5));
    CreateDirectoryW((folder + L"\\folder").c_str(), nullptr);
    const std::wstring volume = L"Volume{01234567-89ab-cdef-0123-456789ABCDEF}\\";
    struct Case
    {
        std::wstring given, listed; // empty: refused
        UINT driveType = DRIVE_FIXED;
        const wchar_t* device = L"\\Device\\HarddiskVolume7";
        bool isLink = false;
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
        {there, L"", DRIVE_FIXED, L"\\Device\\HarddiskVolume7", true},
        {folder + L"\\folder", L""},
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
    CountedImport<"CreateFileW",
                  HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)>
        files(sysmaintModule());
    files.setHook([](auto original, LPCWSTR name, DWORD access, DWORD share, auto* security,
                     DWORD disposition, DWORD flags, HANDLE model) -> HANDLE {
        SetLastError(ERROR_SHARING_VIOLATION);
        return flags == 0x04000080 ? INVALID_HANDLE_VALUE
                                   : original(name, access, share, security, disposition, flags, model);
    });
    const Case* now = nullptr;
    CountedImport<"GetDriveTypeW", decltype(&GetDriveTypeW)> types(sysmaintModule());
    types.setHook([&](auto, LPCWSTR) { return now->driveType; });
    CountedImport<"QueryDosDeviceW", decltype(&QueryDosDeviceW)> devices(sysmaintModule());
    devices.setHook([&](auto, LPCWSTR, LPWSTR target, DWORD) -> DWORD {
        std::wcscpy(target, now->device);
        return 1;
    });
    CountedImport<"GetFileAttributesW", decltype(&GetFileAttributesW)> attributes(sysmaintModule());
    attributes.setHook([&](auto original, LPCWSTR path) {
        const DWORD real = original(path);
        return real != INVALID_FILE_ATTRIBUTES && now->isLink ? real | FILE_ATTRIBUTE_REPARSE_POINT : real;
    });
    CountedImport<"DeleteFileW", decltype(&DeleteFileW)> removals(sysmaintModule());
    removals.setHook([](auto, LPCWSTR) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.given << " on a drive of type " << c.driveType);
        now = &c;
        takeBootList();
        writeBytes(bootListPath(), {'x', 0, '\r', 0, '\n', 0});
        wiper->setNeedsReboot(0);
        EXPECT_NE(fail(*wiper, c.given), 0);
        EXPECT_EQ(ForceDeleteIsScheduled(c.given.c_str()), c.listed.empty() ? 0 : 1);
        EXPECT_EQ(takeBootList(), L"x\r\n" + (c.listed.empty() ? L"" : lineOf(c.listed, L"3*\t*1")));
        EXPECT_EQ(wiper->getNeedsReboot(), c.listed.empty() ? 0U : 1U);
    }
}

TEST(BootList, IsWrittenByteForByte)
{
    takeBootList();
    const std::wstring folder = scratchFolder();
    const std::wstring missing = folder + L"\\no such file.txt";
    std::wstring opened;
    CountedImport<"CreateFileW",
                  HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)>
        files(sysmaintModule());
    files.setHook([&](auto original, LPCWSTR name, DWORD access, DWORD share, auto... rest) {
        if (access == GENERIC_WRITE && share == FILE_SHARE_WRITE)
            opened = name;
        return original(name, access, share, rest...);
    });
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    EXPECT_EQ(fail(*wiper, missing), 2);
    wchar_t windows[MAX_PATH];
    GetWindowsDirectoryW(windows, MAX_PATH);
    EXPECT_EQ(opened, std::wstring(windows) + L"\\\\ForceDelete.txt");
    EXPECT_EQ(fail(*wiper, missing, 1, 0xFFFFFFFF), 2); // numbers are signed
    EXPECT_EQ(takeBootList(), kHeader + lineOf(missing, L"3*\t*1") + lineOf(missing, L"1*\t*-1"));
    writeBytes(bootListPath(), {});
    fail(*wiper, missing, 2, 7);
    EXPECT_EQ(takeBootList(), kHeader + lineOf(missing, L"2*\t*7"));
    wchar_t before[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, before);
    SetCurrentDirectoryW(folder.c_str());
    writeBytes(bootListPath(), {'x', 0});
    EXPECT_EQ(fail(*wiper, L"no such file.txt", 2, 7), 2); // the boot-time program has no current folder
    EXPECT_EQ(fail(*wiper, folder + L"/tree\\..\\no such file.txt", 2, 7), 2);
    SetCurrentDirectoryW(before);
    EXPECT_EQ(takeBootList(), L"x" + lineOf(missing, L"2*\t*7") + lineOf(missing, L"2*\t*7"));

    // A list that others hold, and a disk that takes half of a line, leave it as it was; the caller can tell.
    writeBytes(bootListPath(), {'x', 0, '\r', 0, '\n', 0});
    const HANDLE held =
        ::CreateFileW(bootListPath().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    wiper->setNeedsReboot(0);
    EXPECT_EQ(fail(*wiper, missing), 2);
    EXPECT_EQ(wiper->getNeedsReboot(), 1U);
    EXPECT_EQ(ForceDeleteIsScheduled(missing.c_str()), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    CloseHandle(held);
    CountedImport<"WriteFile", decltype(&WriteFile)> writes(sysmaintModule());
    writes.setHook([](auto original, HANDLE file, LPCVOID data, DWORD size, auto* put, auto* overlapped) {
        return original(file, data, size / 2, put, overlapped);
    });
    EXPECT_EQ(fail(*wiper, missing), 2);
    EXPECT_EQ(ForceDeleteIsScheduled(missing.c_str()), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(takeBootList(), L"x\r\n");
}
