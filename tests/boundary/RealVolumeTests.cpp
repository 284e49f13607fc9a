#include "RealWindowsTest.h"

/// A drive Q: whose device is the file "device", which shows what Windows would do with a volume.
struct RealVolume : RealWindows
{
    RealVolume()
    {
        files.setHook([this](auto open, LPCWSTR name, DWORD access, auto... rest) {
            if (std::wcscmp(name, L"\\\\.\\Q:") != 0)
                return open(name, access, rest...);
            SetLastError(ERROR_SHARING_VIOLATION);
            if (heldOpens != 0 && heldOpens-- != 0)
                return INVALID_HANDLE_VALUE;
            steps += (access & GENERIC_READ) != 0 ? 'r' : 'w';
            return open(at(L"device").c_str(), access, rest...);
        });
        space.setHook([this](auto, LPCWSTR, auto*, auto* all, auto*) {
            all->QuadPart = counted;
            return TRUE;
        });
        controls.setHook([this](auto, HANDLE, DWORD code, LPVOID, DWORD, LPVOID result, auto...) -> BOOL {
            const std::map<DWORD, char> letters{{IOCTL_DISK_GET_LENGTH_INFO, 'l'},
                                                {FSCTL_UNLOCK_VOLUME, 'u'},
                                                {FSCTL_LOCK_VOLUME, 'k'},
                                                {FSCTL_DISMOUNT_VOLUME, 'd'},
                                                {FSCTL_ALLOW_EXTENDED_DASD_IO, 'x'}};
            steps += letters.contains(code) ? letters.at(code) : '?';
            SetLastError(failure);
            if (code == IOCTL_DISK_GET_LENGTH_INFO)
                static_cast<GET_LENGTH_INFORMATION*>(result)->Length.QuadPart = static_cast<LONGLONG>(length);
            return failingSteps.find(steps.back()) == std::string::npos;
        });
    }

    std::string steps; // opens and controls, a letter each
    std::uint64_t counted = 0, length = 0;
    std::string failingSteps;
    DWORD failure = 0;
    long heldOpens = 0;
    FreeSpaceQueries space;
    Controls controls;
};

/// A volume with the free space and the largest file size of a row.
struct FullVolume : RealWindows
{
    struct Row
    {
        std::uint64_t told, room, largest; // free bytes reported and real, largest size of a file
        DWORD full;                        // the code beyond it
        long code;
        std::size_t files;
        std::uint32_t method = kWipeZeros;
    };

    [[nodiscard]] std::uint64_t taken() const
    {
        std::uint64_t bytes = 0;
        for (const std::wstring& name : kNames)
            bytes += isThere(at(name)) ? std::filesystem::file_size(at(name)) : 0;
        return bytes;
    }
    [[nodiscard]] std::size_t fillers() const
    {
        return std::ranges::count_if(kNames, [this](auto& name) { return isThere(at(name)); });
    }

    const std::wstring kNames[4] = {L"FreeSpaceFile.qmx", L"FreeSpaceFile2.qmx", L"FreeSpaceFile3.qmx",
                                    L"FreeSpaceFile4.qmx"};
    const Row* now = nullptr;
    std::size_t seen = 0;
    FreeSpaceQueries space{[this](auto, LPCWSTR, auto*, auto*, auto* free) {
        free->QuadPart = now->told > taken() ? now->told - taken() : 0;
        return TRUE;
    }};
    Writes writes{[this](auto original, HANDLE file, LPCVOID data, DWORD size, auto... rest) -> BOOL {
        const std::uint64_t end = GetFileSize(file, nullptr), stop = positionOf(file) + size;
        if (stop > now->largest || (stop > end && taken() + stop - end > now->room))
            return SetLastError(now->full), FALSE;
        const BOOL written = original(file, data, size, rest...);
        return seen = std::max(seen, fillers()), written;
    }};
    Flushes flushes{[](auto, HANDLE) { return TRUE; }};
};

TEST_F(RealVolume, IsHadAloneAndWipedToItsEndInWholeSectors)
{
    // What is counted by the file system and by the device; what fails, how; the steps and the code.
    const std::tuple<std::uint64_t, std::uint64_t, const char*, DWORD, const char*, long> rows[] = {
        {2 * kChunk, 2 * kChunk + 8192, "", 0, "rlwkdx", 0},
        {kChunk + 1000, 3 * kChunk, "", 0, "rlwkdx", 0},             // a quota, or a sector kept aside
        {kChunk + 4096, kChunk + 4096, "", 0, "rlwkdx", 0},          // all is counted
        {kChunk + 512, 0, "l", ERROR_INVALID_FUNCTION, "rlwkdx", 0}, // unsupported request
        {kChunk, kChunk, "l", ERROR_CRC, "rl", ERROR_CRC},
        {kChunk, kChunk, "k", ERROR_NOT_READY, "rlwk", ERROR_NOT_READY},
        {kChunk, kChunk, "ku", ERROR_INVALID_FUNCTION, "rlwkudx", 0}, // no file system has locks
        {kChunk, kChunk, "k", ERROR_INVALID_FUNCTION, "rlwku", ERROR_INVALID_FUNCTION},
        {kChunk, kChunk, "k", ERROR_NOT_SUPPORTED, "rlwku", ERROR_NOT_SUPPORTED},
        {kChunk, kChunk, "k", ERROR_INVALID_PARAMETER, "rlwku", ERROR_INVALID_PARAMETER},
        {kChunk, kChunk, "d", ERROR_NOT_READY, "rlwkd", ERROR_NOT_READY},
        {kChunk, kChunk, "x", ERROR_INVALID_FUNCTION, "rlwkdx", 0}};
    // As of a disk with large sectors.
    Writes writes(failing(FALSE, ERROR_INVALID_PARAMETER, [](HANDLE file, LPCVOID, DWORD size, auto...) {
        return (positionOf(file) % 4096 != 0 || size % 4096 != 0) && size != 512;
    }));
    for (const auto& [byFiles, byDevice, fails, how, taken, code] : rows) {
        SCOPED_TRACE(testing::Message() << byFiles << " of " << byDevice << " fails " << fails);
        counted = byFiles, length = byDevice, failingSteps = fails, failure = how;
        const std::size_t all = std::max(counted, length);
        writeBytes(at(L"device"), Bytes(all, 0xE5));
        steps.clear(), wiper->setNeedsReboot(0), total = 2 * counted;
        EXPECT_TRUE(wipe(kWipePartition, L"Q:\\", kWipeZeros, 2) == code && steps == taken);
        EXPECT_EQ(readBytes(at(L"device")), Bytes(all, code == 0 ? 0 : 0xE5));
        EXPECT_EQ(wiper->getNeedsReboot(), code == 0 ? 0U : 1U);
        EXPECT_TRUE(code != 0 || (progress.done == 2 * all && progress.total == 2 * all));
    }
}

TEST_F(RealVolume, IsWaitedForWhileSomebodyHasItOpen)
{
    for (const long tries : {3L, 1000L}) { // for a moment, and permanently
        left = tries, waited = 0;
        controls.setHook([this](auto, HANDLE, DWORD code, auto...) -> BOOL {
            return SetLastError(ERROR_ACCESS_DENIED), code != FSCTL_LOCK_VOLUME || left == 0 || --left < 0;
        });
        counted = kChunk;
        writeBytes(at(L"device"), Bytes(kChunk, 0xE5));
        EXPECT_EQ(wipe(kWipePartition, L"Q:\\"), tries == 3 ? 0 : ERROR_ACCESS_DENIED);
        EXPECT_EQ(readBytes(at(L"device")), Bytes(kChunk, tries == 3 ? 0 : 0xE5));
        EXPECT_NE(waited, 0U);
        left = 0, waited = 0, heldOpens = tries;
        EXPECT_EQ(wipe(kWipePartition, L"Q:\\"), tries == 3 ? 0 : ERROR_SHARING_VIOLATION);
        EXPECT_NE(waited, 0U);
    }
}

TEST_F(FullVolume, EndsTheFillersAndAFilesEndBeginsTheNext)
{
    const std::uint64_t none = ~0ULL;
    const Row rows[] = {
        {3 * kChunk, 3 * kChunk, none, ERROR_DISK_FULL, 0, 1},
        {3 * kChunk, 2 * kChunk + 699904, none, ERROR_DISK_FULL, 0, 1}, // somebody took the last clusters
        {4 * kChunk, 2 * kChunk, none, ERROR_DISK_FULL, ERROR_DISK_FULL, 2}, // there was never more
        {4 * kChunk, 4 * kChunk, kChunk * 3 / 2, ERROR_DISK_FULL, 0, 3},
        {5 * kChunk - 1, 5 * kChunk - 1, 2 * kChunk, ERROR_FILE_TOO_LARGE, 0, 3},
        {2 * kChunk + 3000, 2 * kChunk + 3000, 2 * kChunk, ERROR_DISK_FULL, 0, 2},
        {3 * kChunk, 3 * kChunk, 2 * kChunk - 512, ERROR_FILE_TOO_LARGE, 0, 2},
        {3 * kChunk, 3 * kChunk, 2 * kChunk - 512, ERROR_DISK_FULL, 0, 2, kWipeGutmann}};
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        now = &row, seen = 0, total = row.told;
        long fills = 0;
        std::uint64_t most = 0;
        onChunk = [&] { most = std::max(most, taken()), ++fills; };
        EXPECT_EQ(wipe(kWipeFreeSpace, at(L""), row.method), row.code);
        EXPECT_EQ(seen, std::min<std::size_t>(row.files, row.code == 0 ? 9 : 1));
        EXPECT_TRUE(row.code != 0 || (progress.done == progress.total && fills != 0));
        EXPECT_TRUE(row.code != 0 || most == std::min(row.told, row.room)) << "to the last piece";
        EXPECT_TRUE(fillers() == 0U && takeBootList().empty());
    }
}

TEST_F(FullVolume, KeepsAFileOfSomebodysAndLosesWhatAnEarlierRunLeft)
{
    const Row rows[] = {{4 * kChunk, 4 * kChunk, kChunk * 3 / 2, ERROR_DISK_FULL, 0, 3},
                        {3 * kChunk, 3 * kChunk, ~0ULL, ERROR_DISK_FULL, 0, 1}};
    now = &rows[0];
    writeBytes(at(kNames[1]), secret);
    EXPECT_TRUE(wipe(kWipeFreeSpace, at(L"")) == 0 && readBytes(at(kNames[1])) == secret);
    DeleteFileW(at(kNames[1]).c_str());
    for (const std::wstring& name : {kNames[0], kNames[1]}) {
        writeBytes(at(name), secret);
        SetFileAttributesW(at(name).c_str(), FILE_ATTRIBUTE_HIDDEN);
    }
    now = &rows[1];
    EXPECT_TRUE(wipe(kWipeFreeSpace, at(L"")) == 0 && fillers() == 0U);
}
