// Run by tests/volumes/volumes on the drives that it makes.

#include "support/Wipe.h"

namespace {
std::wstring drive(const wchar_t* variable)
{
    wchar_t text[16] = {};
    GetEnvironmentVariableW(variable, text, 16);
    return text;
}
} // namespace

/// Stops the wipe of the second chunk of one file after each of the passes. The files are gone then; what is
/// in their clusters is for the script to see.
TEST(Volumes, StopAfterEachPass)
{
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    CountedImport<"FlushFileBuffers", decltype(&FlushFileBuffers)> flushes(sysmaintModule());
    const Event event;
    for (int pass = 0; pass < 35; ++pass) {
        const std::wstring file = drive(L"SYSMAINT_NTFS_DRIVE") + L"\\pass" + std::to_wstring(pass);
        ASSERT_TRUE(isThere(file));
        flushes.reset();
        flushes.setHook([&](auto original, HANDLE handle) {
            const BOOL result = original(handle);
            if (flushes.calls() == 35 + pass + 1)
                SetEvent(event.handle);
            return result;
        });
        EXPECT_EQ(wiper->Wipe(nullptr, nullptr, kWipeFile, file.c_str(), nullptr, nullptr, kWipeGutmann, 1,
                              event.handle),
                  ERROR_CANCELLED);
        EXPECT_FALSE(isThere(file));
        ResetEvent(event.handle);
    }
}

TEST(Volumes, TheFileTableIsFilled)
{
    for (const wchar_t* variable : {L"SYSMAINT_NTFS_DRIVE", L"SYSMAINT_FAT_DRIVE"}) {
        const std::wstring root = drive(variable) + L"\\";
        WipeProgress progress;
        EXPECT_EQ(WipeFileTable(
                      root.c_str(), [](WipeProgress*) {}, &progress, nullptr),
                  0);
        EXPECT_FALSE(isThere(root + L"FileTable.qmx"));
        EXPECT_TRUE(progress.done != 0 && progress.done == progress.total);
    }
}

TEST(Volumes, InUseOrNotThereAreRefused)
{
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    const auto wipe = [&](const std::wstring& volume) {
        return wiper->Wipe(nullptr, nullptr, kWipePartition, volume.c_str(), nullptr, nullptr, kWipeZeros, 1,
                           nullptr);
    };
    const std::wstring raw = drive(L"SYSMAINT_RAW_DRIVE");
    const HANDLE user = ::CreateFileW((L"\\\\.\\" + raw).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(user, INVALID_HANDLE_VALUE);
    EXPECT_EQ(wipe(raw + L"\\"), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(wiper->getNeedsReboot(), 1U);
    CloseHandle(user);
    EXPECT_NE(wipe(L"Y:\\"), 0);
}

/// Two files as large as can be told apart from noise, the same bytes by the wiper and by a bare loop.
TEST(Volumes, ShowThroughputBesideABareLoop)
{
    constexpr std::size_t kChunk = 1048576;
    const std::wstring root = drive(L"SYSMAINT_NTFS_DRIVE") + L"\\";
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    const Bytes zeros(kChunk);
    const int chunks = 16;
    const auto fill = [&](const std::wstring& path) {
        const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
        for (int i = 0; i < chunks; ++i) {
            DWORD put = 0;
            WriteFile(file, zeros.data(), kChunk, &put, nullptr);
            FlushFileBuffers(file);
        }
        CloseHandle(file);
    };
    fill(root + L"ours");
    fill(root + L"bare");
    LARGE_INTEGER begin, middle, end;
    QueryPerformanceCounter(&begin);
    fill(root + L"bare");
    DeleteFileW((root + L"bare").c_str()); // as the wiper does in the end
    QueryPerformanceCounter(&middle);
    EXPECT_EQ(wiper->Wipe(nullptr, nullptr, kWipeFile, (root + L"ours").c_str(), nullptr, nullptr, kWipeZeros,
                          1, nullptr),
              0);
    QueryPerformanceCounter(&end);
    // Shown, not judged: time never decides a test.
    RecordProperty("bare loop by wiper, percent", static_cast<int>((middle.QuadPart - begin.QuadPart) * 100 /
                                                                   (end.QuadPart - middle.QuadPart)));
    std::printf("bare loop / wiper: %.2f\n", static_cast<double>(middle.QuadPart - begin.QuadPart) /
                                                 static_cast<double>(end.QuadPart - middle.QuadPart));
}
