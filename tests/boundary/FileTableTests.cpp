#include <windows.h>

#include <winioctl.h>

#include <functional>

#include "support/Wipe.h"

namespace {
std::function<void()> onBatch;

/// The table is made believe: its length, or what the volume has free, is told here.
class FileTableTest : public testing::Test
{
protected:
    FileTableTest() : folder(scratchFolder() + L"\\")
    {
        writeBytes(folder + L"neighbour", Bytes(10, 0xE5));
        control.setHook(
            [this](auto, HANDLE, DWORD code, LPVOID, DWORD, LPVOID data, DWORD, auto*, auto*) -> BOOL {
                SetLastError(ERROR_INVALID_FUNCTION);
                if (tableGrowsAfter == 0 || code != FSCTL_GET_NTFS_VOLUME_DATA)
                    return FALSE;
                static_cast<NTFS_VOLUME_DATA_BUFFER*>(data)->MftValidDataLength.QuadPart =
                    65536 + (files.calls() > tableGrowsAfter ? 1024 : 0);
                return TRUE;
            });
        space.setHook([this](auto, LPCWSTR, auto*, auto*, auto* bytes) -> BOOL {
            bytes->QuadPart = 1U << 30U;
            bytes->QuadPart -= static_cast<ULONGLONG>(files.calls()) * bytesPerFile;
            return TRUE;
        });
    }
    ~FileTableTest() override { onBatch = nullptr; }

    long wipe(HANDLE event = nullptr)
    {
        files.reset();
        progress = WipeProgress();
        const auto callback = [](WipeProgress*) {
            if (onBatch)
                onBatch();
        };
        return WipeFileTable(folder.c_str(), callback, &progress, event);
    }
    void expectNothingLeft() const
    {
        EXPECT_FALSE(isThere(folder + L"FileTable.qmx"));
        EXPECT_EQ(readBytes(folder + L"neighbour"), Bytes(10, 0xE5));
    }

    std::wstring folder;
    long tableGrowsAfter = 0; // files
    ULONGLONG bytesPerFile = 0;
    WipeProgress progress;
    CountedImport<"CreateFileW",
                  HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)>
        files{sysmaintModule()}; // the first opens the folder
    CountedImport<"DeviceIoControl", decltype(&DeviceIoControl)> control{sysmaintModule()};
    CountedImport<"GetDiskFreeSpaceExW", decltype(&GetDiskFreeSpaceExW)> space{sysmaintModule()};
    CountedImport<"WriteFile", decltype(&WriteFile)> writes{sysmaintModule()};
};
} // namespace

TEST_F(FileTableTest, IsFilledUntilItGrows)
{
    struct Case
    {
        long tableGrowsAfter;
        ULONGLONG bytesPerFile;
        long files;
    };
    for (const Case& c :
         {Case{600, 0, 768}, Case{600, 4096, 768}, Case{0, 512, 256}, Case{0, 0, 256}, Case{0, 4096, 256}}) {
        tableGrowsAfter = c.tableGrowsAfter;
        bytesPerFile = c.bytesPerFile;
        EXPECT_EQ(wipe(), 0);
        EXPECT_EQ(writes.calls(), c.files);
        EXPECT_EQ(progress.done, c.files * 600ULL);
        EXPECT_EQ(progress.total, progress.done);
        writes.reset();
        expectNothingLeft();
    }
    // The entries of the folder itself are not the table.
    bytesPerFile = 200;
    onBatch = [&] { bytesPerFile = files.calls() > 1000 ? 1024 : 200; };
    EXPECT_EQ(wipe(), 0);
    EXPECT_EQ(writes.calls(), 1024);
    expectNothingLeft();
}

TEST_F(FileTableTest, LeavesNothingBehindWhateverHappens)
{
    const Event event;
    tableGrowsAfter = 100000;
    for (const long call : {1L, 2L, 300L}) {
        files.failCall(call, INVALID_HANDLE_VALUE, ERROR_DISK_FULL);
        EXPECT_EQ(WipeFileTable(folder.c_str(), nullptr, nullptr, nullptr), ERROR_DISK_FULL);
        files.failCall(0, nullptr, 0);
        expectNothingLeft();
        writes.failCall(call, FALSE, ERROR_CRC);
        EXPECT_EQ(wipe(), ERROR_CRC);
        writes.failCall(0, FALSE, 0);
        expectNothingLeft();
        writes.setHook([&](auto write, HANDLE file, LPCVOID data, DWORD size, auto* put, auto* overlapped) {
            if (writes.calls() == call)
                SetEvent(event.handle);
            return write(file, data, size, put, overlapped);
        });
        writes.reset();
        EXPECT_EQ(wipe(event.handle), ERROR_CANCELLED);
        EXPECT_EQ(writes.calls(), call);
        writes.setHook(nullptr);
        ResetEvent(event.handle);
        expectNothingLeft();
    }
    onBatch = [] { throw 5L; };
    EXPECT_EQ(wipe(), 5);
    expectNothingLeft();
    onBatch = [] { throw "nothing with a code"; };
    EXPECT_EQ(wipe(), 574);
    expectNothingLeft();
    CountedImport<"GetFileAttributesW", decltype(&GetFileAttributesW)> attributes(sysmaintModule());
    attributes.setHook([](auto original, LPCWSTR path) { // a link has taken the folder's place at once
        return original(path) | FILE_ATTRIBUTE_REPARSE_POINT;
    });
    EXPECT_EQ(wipe(), 681);
    expectNothingLeft();
    attributes.setHook(nullptr);

    // What others put there, before and meanwhile, stays, and nobody can swap the folder.
    tableGrowsAfter = 100;
    onBatch = [&] {
        EXPECT_FALSE(MoveFileW((folder + L"FileTable.qmx").c_str(), (folder + L"aside").c_str()));
        writeBytes(folder + L"FileTable.qmx\\stranger", Bytes(10, 0x50));
    };
    EXPECT_EQ(wipe(), ERROR_DIR_NOT_EMPTY);
    EXPECT_EQ(wipe(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(readBytes(folder + L"FileTable.qmx\\stranger"), Bytes(10, 0x50));
    EXPECT_FALSE(isThere(folder + L"FileTable.qmx\\00000000"));
    EXPECT_EQ(WipeFileTable(nullptr, nullptr, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WipeFileTable(L"", nullptr, nullptr, nullptr), ERROR_INVALID_PARAMETER);
}
