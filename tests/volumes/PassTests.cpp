// Run by tests/volumes/volumes on the drives that it makes and names.

#include "support/Wipe.h"

using Volumes = WipeTest;

/// Stops the wipe of the second chunk of one file after each of the passes. The files are gone then; the
/// script checks their clusters.
TEST_F(Volumes, StopAfterEachPass)
{
    const TestEvent event;
    for (int pass = 0; pass < 35; ++pass) {
        const std::wstring file = _wgetenv(L"SYSMAINT_NTFS_DRIVE") + (L"\\pass" + std::to_wstring(pass));
        ASSERT_TRUE(isThere(file));
        ResetEvent(event.get());
        Flushes flushes(after([&](auto...) {
            if (flushes.calls() == 35 + pass + 1)
                event.set();
        }));
        EXPECT_EQ(wipe(kWipeFile, file, kWipeGutmann, 1, event.get()), ERROR_CANCELLED);
        EXPECT_FALSE(isThere(file));
    }
}

TEST_F(Volumes, TheFileTableIsFilled)
{
    for (const wchar_t* variable : {L"SYSMAINT_NTFS_DRIVE", L"SYSMAINT_FAT_DRIVE"}) {
        const std::wstring root = _wgetenv(variable) + std::wstring(L"\\");
        progress = WipeProgress();
        EXPECT_EQ(WipeFileTable(root.c_str(), callback, &progress, nullptr), 0);
        EXPECT_FALSE(isThere(root + L"FileTable.qmx"));
        EXPECT_TRUE(progress.done != 0 && progress.done == progress.total);
    }
}

TEST_F(Volumes, InUseAreRefused)
{
    const std::wstring raw = _wgetenv(L"SYSMAINT_RAW_DRIVE");
    const Win32Handle user = openedFile(L"\\\\.\\" + raw, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ASSERT_TRUE(user.isValid());
    EXPECT_EQ(wipe(kWipePartition, raw + L"\\"), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(wiper->getNeedsReboot(), 1U);
}
