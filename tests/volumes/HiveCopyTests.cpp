// Run by tests/volumes/hives, which creates the volume and compares the copies.

#include "core/win32/registry/defragmenter/include/HiveCopy.h"
#include "support/Hives.h"

/// Nobody can read the file itself: the test has it open exclusively.
TEST(HiveCopies, AreReadFromTheVolumeWhileTheFileIsLocked)
{
    const std::wstring folder = _wgetenv(L"SYSMAINT_VOLUME_FOLDER");
    Extents extents;
    const Controls controls(
        [&](auto, HANDLE, DWORD code, LPVOID, DWORD, LPVOID answer, DWORD size, LPDWORD returned, auto) {
            EXPECT_EQ(code, static_cast<DWORD>(FSCTL_GET_RETRIEVAL_POINTERS));
            return tellExtents(extents, answer, size, returned);
        });
    for (const wchar_t* name : {L"small", L"pair", L"large", L"pieces", L"odd", L"empty"}) {
        SCOPED_TRACE(testing::Message() << name);
        extents.clear();
        std::ifstream lines(std::filesystem::path(folder + L"\\extents." + name));
        for (LONGLONG next = 0, at = 0, count = 0; lines >> next >> at >> count;)
            extents.push_back({count, at});
        const std::wstring file = std::wstring(L"N:\\") + name;
        const Win32Handle locked = openedFile(file, GENERIC_READ | GENERIC_WRITE);
        ASSERT_TRUE(locked.isValid());
        EXPECT_FALSE(openedFile(file, GENERIC_READ, 7).isValid());
        const auto copy = [&] { HiveCopy(file.c_str(), (folder + L"\\copy." + name).c_str(), nullptr); };
        EXPECT_EQ(codeOf(copy), extents.empty() ? ERROR_HANDLE_EOF : ERROR_SUCCESS);
    }
}
