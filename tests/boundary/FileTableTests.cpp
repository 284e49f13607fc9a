#include "support/Wipe.h"

/// The table is simulated: its length, or the volume's free space, is answered here.
struct FileTableTest : WipeTest
{
    FileTableTest()
    {
        writeBytes(at(L"neighbour"), Bytes(10, 0xE5));
        control.setHook([this](auto, HANDLE, DWORD code, LPVOID, DWORD, LPVOID data, auto...) {
            SetLastError(ERROR_INVALID_FUNCTION);
            if (tableGrowsAfter == 0 || code != FSCTL_GET_NTFS_VOLUME_DATA)
                return FALSE;
            static_cast<NTFS_VOLUME_DATA_BUFFER*>(data)->MftValidDataLength.QuadPart =
                65536 + (files.calls() > tableGrowsAfter ? 1024 : 0);
            return TRUE;
        });
        space.setHook([this](auto, LPCWSTR, auto*, auto*, auto* bytes) {
            bytes->QuadPart = (1U << 30U) - static_cast<ULONGLONG>(files.calls()) * bytesPerFile;
            return TRUE;
        });
    }

    /// A call that creates so many files, and what exists afterwards.
    void expect(long code, long made, HANDLE event = nullptr)
    {
        files.reset();
        writes.reset();
        progress = WipeProgress();
        EXPECT_EQ(WipeFileTable(at(L"").c_str(), callback, &progress, event), code);
        EXPECT_TRUE(writes.calls() == made && !isThere(at(L"FileTable.qmx")));
        EXPECT_EQ(readBytes(at(L"neighbour")), Bytes(10, 0xE5));
    }

    long tableGrowsAfter = 0; // files; the first open is that of the folder
    ULONGLONG bytesPerFile = 0;
    Controls control;
    FreeSpaceQueries space;
    Writes writes;
};

TEST_F(FileTableTest, IsFilledUntilItGrows)
{
    const std::tuple<long, unsigned, long> cases[] = {
        {600, 0, 768}, {600, 4096, 768}, {0, 512, 256}, {0, 0, 256}, {0, 4096, 256}};
    for (const auto& [growsAfter, size, made] : cases) {
        tableGrowsAfter = growsAfter;
        bytesPerFile = size;
        expect(0, made);
        EXPECT_EQ(std::tuple(progress.done, progress.total), std::tuple(made * 600ULL, made * 600ULL));
    }
    // The folder's own entries are not the table.
    bytesPerFile = 200;
    onChunk = [&] { bytesPerFile = files.calls() > 1000 ? 1024 : 200; };
    expect(0, 1024);
}

TEST_F(FileTableTest, LeavesNothingBehindWhateverHappens)
{
    const TestEvent event;
    tableGrowsAfter = 100000;
    for (const long call : {1L, 2L, 300L}) {
        files.failCall(call, INVALID_HANDLE_VALUE, ERROR_DISK_FULL);
        expect(ERROR_DISK_FULL, std::max(0L, call - 2));
        files.failCall(0, nullptr, 0);
        for (const bool cancelled : {false, true}) {
            writes.setHook(failing(FALSE, ERROR_CRC, [&](auto...) {
                if (writes.calls() == call && cancelled)
                    event.set();
                return writes.calls() == call && !cancelled;
            }));
            expect(cancelled ? ERROR_CANCELLED : ERROR_CRC, call, event.get());
            writes.setHook(nullptr);
            event.reset();
        }
    }
    onChunk = [] { throw 5L; };
    expect(5, 256);
    onChunk = [] { throw "nothing with a code"; };
    expect(574, 256);
    Attributes attributes(markedBy(FILE_ATTRIBUTE_REPARSE_POINT));
    expect(681, 0); // a link has taken the folder's place at once
}

/// What others put there, before or meanwhile, stays, and nobody can replace the folder.
TEST_F(FileTableTest, LeavesWhatIsOfOthers)
{
    tableGrowsAfter = 100;
    onChunk = [&] {
        EXPECT_FALSE(MoveFileW(at(L"FileTable.qmx").c_str(), at(L"aside").c_str()));
        writeBytes(at(L"FileTable.qmx\\stranger"), Bytes(10, 0x50));
    };
    const std::wstring root = at(L"");
    EXPECT_EQ(WipeFileTable(root.c_str(), callback, &progress, nullptr), ERROR_DIR_NOT_EMPTY);
    EXPECT_EQ(WipeFileTable(root.c_str(), nullptr, nullptr, nullptr), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(readBytes(at(L"FileTable.qmx\\stranger")), Bytes(10, 0x50));
    EXPECT_FALSE(isThere(at(L"FileTable.qmx\\00000000")));
    EXPECT_EQ(WipeFileTable(L"", nullptr, nullptr, nullptr), ERROR_INVALID_PARAMETER);
}
