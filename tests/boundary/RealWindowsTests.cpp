// What Windows does and the tests' platform does not: the system's answers are simulated.

#include <windows.h>

#include <winioctl.h>

#include <algorithm>
#include <cwchar>
#include <tuple>

#include "../host/Console.h"
#include "../host/ShadowCopies.h"
#include "core/win32/utils/logger/api.h"
#include "support/Wipe.h"

namespace {
using Deletions = Replaced<"DeleteFileW", decltype(&DeleteFileW)>;
using Removals = Replaced<"RemoveDirectoryW", decltype(&RemoveDirectoryW)>;
using Settings = Replaced<"SetFileInformationByHandle", decltype(&SetFileInformationByHandle)>;

/// Files that have one attribute more.
struct Marked : Attributes
{
    explicit Marked(DWORD mark)
        : Attributes([mark](auto original, LPCWSTR path) {
              const DWORD own = original(path);
              return own == INVALID_FILE_ATTRIBUTES ? own : own | mark;
          })
    {
    }
};

/// A file "file" and a folder "tree" in a folder of their own, and time that passes at once.
class RealWindows : public WipeTest
{
protected:
    RealWindows() { prepare(); }

    void prepare()
    {
        writeBytes(at(L"file"), secret);
        CreateDirectoryW(at(L"tree").c_str(), nullptr);
        wiper->setNeedsReboot(0);
        waited = 0;
    }
    long wipeFolder()
    {
        stack = {{HeapStringW(at(L"tree").c_str()), L"", true, false}};
        return wipe(kWipeDirectoryStack, at(L"tree"), kWipeZeros, 1, event.get());
    }
    long wipeFile(std::uint32_t method = kWipeZeros)
    {
        return wipe(kWipeFile, at(L"file"), method, 1, event.get());
    }
    [[nodiscard]] unsigned long deleteItem(bool folderItem) const
    {
        return codeOf([&] {
            if (folderItem)
                std::unique_ptr<IDirectory>(DllGetDirectory(at(L"tree").c_str(), 0))->deleteItem();
            else
                std::unique_ptr<IFile>(DllGetFile(at(L"file").c_str(), 0))->deleteItem();
        });
    }
    [[nodiscard]] BOOL held(decltype(&DeleteFileW) original, LPCWSTR path, DWORD code)
    {
        if (left == 0)
            return original(path);
        --left;
        SetLastError(code);
        return FALSE;
    }
    /// Makes the opens with these flags fail with `code` so long as `left` is not 0.
    void failOpens(DWORD flags, DWORD code)
    {
        files.setHook([this, flags, code](auto open, auto... all) {
            const auto given = std::tuple(all...);
            if (std::get<5>(given) != flags || left == 0)
                return open(all...);
            --left;
            SetLastError(code);
            return INVALID_HANDLE_VALUE;
        });
    }

    /// `run`, whose calls fail with `each`, waits for about a second and then returns `failure`; a cancel
    /// ends it.
    void expectPatience(const std::function<unsigned long()>& run, DWORD flags, DWORD each, DWORD failure,
                        bool canCancel)
    {
        const auto runFailing = [&](long failures, DWORD cancelledAt = INFINITE) {
            prepare();
            cancelAfter = cancelledAt;
            failOpens(flags, each);
            left = failures;
            const unsigned long result = run();
            left = 0;
            ResetEvent(event.get());
            takeBootList();
            return result;
        };
        const bool waits = each != ERROR_GEN_FAILURE;
        EXPECT_EQ(runFailing(4), waits ? 0 : failure);
        EXPECT_EQ(waited != 0, waits);
        EXPECT_EQ(runFailing(1000), failure);
        EXPECT_TRUE(waits ? waited > 900 && waited < 1200 : waited == 0) << waited;
        if (canCancel && waits) {
            EXPECT_EQ(runFailing(1000, 20), ERROR_CANCELLED);
            EXPECT_LT(waited, 50U);
        }
    }

    const Bytes secret = Bytes(1000, 0xE5);
    const TestEvent event;
    long left = 0;
    DWORD waited = 0, cancelAfter = INFINITE;
    Replaced<"Sleep", decltype(&Sleep)> sleeps{[this](auto, DWORD pause) {
        waited += pause;
        if (waited >= cancelAfter)
            event.set();
    }};
};
} // namespace

TEST_F(RealWindows, WhatIsHeldForAMomentIsTriedAgainForASecond)
{
    DWORD code = 0;
    Deletions deletions([&](auto original, LPCWSTR path) { return held(original, path, code); });
    Removals removals([&](auto original, LPCWSTR path) { return held(original, path, code); });
    FreeSpaceQueries space(isFull);
    const auto wipeSpace = [this] { return wipe(kWipeFreeSpace, at(L""), kWipeZeros, 1, event.get()); };
    const auto makeLogger = []() -> unsigned long {
        void* logger = CreateLogger(L"held");
        const DWORD failure = GetLastError();
        return CloseLogger(logger) != 0 ? 0 : failure;
    };
    const struct
    {
        const char* what;
        DWORD flags; // of the opens that fail; 0: another call does
        std::function<unsigned long()> run;
        bool canCancel = false;
        DWORD failure = 0;
    } rows[] = {{"file", kOpenToWipe, [&] { return wipeFile(); }, true},
                {"folder", 0, [&] { return wipeFolder(); }, true},
                {"filler", 0x00200002, wipeSpace, true},
                {"filler again", 0x00200080, wipeSpace},
                {"filler's name", 0, wipeSpace},
                {"file item", 0, [&] { return deleteItem(false); }},
                {"folder item", 0, [&] { return deleteItem(true); }},
                {"log", FILE_ATTRIBUTE_NORMAL, makeLogger, false, ERROR_CAN_NOT_COMPLETE}};
    for (const auto& row : rows)
        for (const DWORD each : {5, 32, 33, 145, 303, 31}) {
            if (each == ERROR_DIR_NOT_EMPTY && std::string_view(row.what).substr(0, 6) != "folder")
                continue;
            SCOPED_TRACE(testing::Message() << row.what << " with " << each);
            code = row.flags == 0 ? each : 0;
            expectPatience(row.run, row.flags, each, row.failure != 0 ? row.failure : each, row.canCancel);
        }
}

TEST_F(RealWindows, NobodyWaitsForAFolderThatHoldsSomething)
{
    writeBytes(at(L"tree\\there"), secret);
    EXPECT_EQ(deleteItem(true), ERROR_DIR_NOT_EMPTY);
    EXPECT_EQ(waited, 0U);
}

TEST_F(RealWindows, ANewTryLooksAtWhatItTriesAgain)
{
    // While it is waited for, somebody puts another file there.
    files.setHook([this](auto open, auto... all) {
        if (std::get<5>(std::tuple(all...)) != kOpenToWipe || waited != 0)
            return open(all...);
        MoveFileW(at(L"file").c_str(), at(L"aside").c_str());
        writeBytes(at(L"file"), {1, 2, 3});
        SetLastError(ERROR_SHARING_VIOLATION);
        return INVALID_HANDLE_VALUE;
    });
    EXPECT_EQ(wipeFile(), ERROR_FILE_INVALID);
    EXPECT_EQ(readBytes(at(L"file")), (Bytes{1, 2, 3}));
    EXPECT_EQ(readBytes(at(L"aside")), secret);
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(RealWindows, ANewFileUnderTheNameStays)
{
    // It takes the name while the deletion waits.
    for (const bool folderItem : {false, true}) {
        prepare();
        const std::wstring name = at(folderItem ? L"tree" : L"file");
        const auto refuse = [&](auto original, LPCWSTR path) {
            if (waited != 0)
                return original(path);
            MoveFileW(name.c_str(), at(folderItem ? L"old folder" : L"old file").c_str());
            folderItem ? void(CreateDirectoryW(name.c_str(), nullptr)) : writeBytes(name, {1, 2, 3});
            SetLastError(ERROR_SHARING_VIOLATION);
            return FALSE;
        };
        sleeps.setHook([&](auto, DWORD pause) {
            waited += pause;
            MoveFileW(name.c_str(), at(folderItem ? L"next folder" : L"next file").c_str());
            folderItem ? void(CreateDirectoryW(name.c_str(), nullptr)) : writeBytes(name, {4, 5, 6});
        });
        Deletions deletions(refuse);
        Removals removals(refuse);
        EXPECT_EQ(deleteItem(folderItem), DWORD{ERROR_FILE_INVALID});
        EXPECT_TRUE(isThere(name));
    }
    // It takes the name after the deletion, and the file system gives it the number of the old one.
    prepare();
    BY_HANDLE_FILE_INFORMATION old{};
    Looks looks([&](auto original, HANDLE file, auto* information) {
        const BOOL told = original(file, information);
        old = looks.calls() == 1 ? *information : old;
        information->nFileIndexHigh = old.nFileIndexHigh, information->nFileIndexLow = old.nFileIndexLow;
        return told;
    });
    Attributes attributes([&](auto original, LPCWSTR path) {
        if (!isThere(at(L"file")))
            writeBytes(at(L"file"), {7});
        return original(path);
    });
    EXPECT_EQ(wipeFile(), ERROR_FILE_INVALID);
    EXPECT_EQ(readBytes(at(L"file")), Bytes{7});
    EXPECT_TRUE(takeBootList().empty());
    EXPECT_EQ(wiper->getNeedsReboot(), 0U);
}

TEST_F(RealWindows, WhatWasMissingDoesNotWaitForWhoeverTakesItsName)
{
    for (const DWORD code : {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND}) {
        failOpens(kOpenToWipe, code);
        left = 1;
        EXPECT_EQ(wipeFile(), static_cast<long>(code));
        EXPECT_TRUE(takeBootList().empty());
    }
}

TEST_F(RealWindows, NothingIsCalledGoneWhoseNameIsStillThere)
{
    // Open elsewhere, but not blocking anybody from opening or deleting it: the name stays until it is
    // closed.
    const std::tuple<const char*, const wchar_t*, std::function<unsigned long()>> rows[] = {
        {"wiped file", L"file", [&] { return wipeFile(); }},
        {"wiped folder", L"tree", [&] { return wipeFolder(); }},
        {"file item", L"file", [&] { return deleteItem(false); }},
        {"folder item", L"tree", [&] { return deleteItem(true); }}};
    // Nobody can open it after the deletion.
    bool isMarked = false;
    const auto mark = [&](auto original, auto... all) {
        isMarked = true;
        return original(all...);
    };
    Deletions deletions(mark);
    Removals removals(mark);
    Settings settings([&](auto set, HANDLE file, auto what, LPVOID data, DWORD size) -> BOOL {
        isMarked = isMarked || static_cast<int>(what) == 21;
        return static_cast<int>(what) != 21 && set(file, what, data, size);
    });
    files.setHook([&](auto open, auto... all) {
        SetLastError(ERROR_ACCESS_DENIED);
        return isMarked ? INVALID_HANDLE_VALUE : open(all...);
    });
    for (const auto& [what, name, run] : rows)
        for (const bool forAMoment : {false, true}) {
            SCOPED_TRACE(testing::Message() << what << forAMoment);
            prepare();
            isMarked = false;
            Win32Handle holder(::CreateFileW(at(name).c_str(), FILE_READ_ATTRIBUTES, 7, nullptr,
                                             OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
            sleeps.setHook([&](auto, DWORD pause) {
                waited += pause;
                if (forAMoment)
                    holder.reset();
            });
            EXPECT_EQ(run(), forAMoment ? 0UL : 303UL);
            EXPECT_EQ(waited > 900, !forAMoment);
            holder.reset();
            isMarked = false;
            EXPECT_FALSE(isThere(at(name)));
            EXPECT_TRUE(takeBootList().empty()) << "it goes by itself, and the next of that name is another";
        }
}

TEST_F(RealWindows, ASystemThatDeletesThePosixWayIsNotAskedAgain)
{
    Attributes looks;
    Settings settings([](auto set, HANDLE file, auto what, LPVOID data, DWORD size) -> BOOL {
        if (static_cast<int>(what) != 21)
            return set(file, what, data, size);
        EXPECT_EQ(*static_cast<DWORD*>(data), 3U);
        return TRUE;
    });
    EXPECT_EQ(wipeFile(), 0);
    EXPECT_EQ(looks.calls(), 1); // before
}

TEST_F(RealWindows, FilesOfWhichOneIsNotTheMasterAreOpenedWithLess)
{
    prepare();
    std::vector<DWORD> asked;
    DWORD refused = GENERIC_ALL;
    files.setHook([&](auto open, auto... all) {
        const DWORD access = std::get<1>(std::tuple(all...)), flags = std::get<5>(std::tuple(all...));
        if ((flags & 0x04200000) == 0 || access == FILE_READ_ATTRIBUTES)
            return open(all...);
        asked.push_back(access);
        SetLastError(ERROR_ACCESS_DENIED);
        return (access & refused) != 0 ? INVALID_HANDLE_VALUE : open(all...);
    });
    FreeSpaceQueries space(isFull);
    constexpr DWORD kLess = GENERIC_READ | GENERIC_WRITE | DELETE;
    EXPECT_EQ(wipeFile(), 0);
    EXPECT_FALSE(isThere(at(L"file")));
    EXPECT_EQ(asked, (std::vector<DWORD>{GENERIC_ALL, kLess}));
    asked.clear();
    EXPECT_EQ(wipe(kWipeFreeSpace, at(L"")), 0);
    EXPECT_EQ(asked, (std::vector<DWORD>{GENERIC_ALL, kLess, GENERIC_ALL, kLess}));
    EXPECT_TRUE(takeBootList().empty());
    prepare();
    refused = GENERIC_ALL | GENERIC_WRITE;
    EXPECT_EQ(wipeFile(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(readBytes(at(L"file")), secret);
}

namespace {
using Controls = Replaced<"DeviceIoControl", decltype(&DeviceIoControl)>;

/// A drive Q: whose device is the file "device", which shows what Windows would do with a volume.
class RealVolume : public RealWindows
{
protected:
    RealVolume()
    {
        files.setHook([this](auto open, LPCWSTR name, DWORD access, auto... rest) {
            if (std::wcscmp(name, L"\\\\.\\Q:") != 0)
                return open(name, access, rest...);
            if (heldOpens != 0 && heldOpens-- != 0) {
                SetLastError(ERROR_SHARING_VIOLATION);
                return INVALID_HANDLE_VALUE;
            }
            steps += (access & GENERIC_READ) != 0 ? 'r' : 'w';
            return open(at(L"device").c_str(), access, rest...);
        });
        space.setHook([this](auto, LPCWSTR, auto*, auto* all, auto*) {
            all->QuadPart = counted;
            return TRUE;
        });
        controls.setHook([this](auto, HANDLE, DWORD code, LPVOID, DWORD, LPVOID result, auto...) -> BOOL {
            const bool isLength = code == IOCTL_DISK_GET_LENGTH_INFO;
            const char step = isLength                               ? 'l'
                              : code == FSCTL_LOCK_VOLUME            ? 'k'
                              : code == FSCTL_DISMOUNT_VOLUME        ? 'd'
                              : code == FSCTL_ALLOW_EXTENDED_DASD_IO ? 'x'
                                                                     : '?';
            steps += step;
            SetLastError(failure);
            if (isLength)
                static_cast<GET_LENGTH_INFORMATION*>(result)->Length.QuadPart = static_cast<LONGLONG>(length);
            return step != failing;
        });
    }

    std::string steps; // opens and controls, a letter each
    std::uint64_t counted = 0, length = 0;
    char failing = 0;
    DWORD failure = 0;
    long heldOpens = 0;
    FreeSpaceQueries space;
    Controls controls;
};
} // namespace

TEST_F(RealVolume, IsHadAloneAndWipedToItsEndInWholeSectors)
{
    // What is counted by the file system and by the device; what fails, how; the steps and the code.
    const std::tuple<std::uint64_t, std::uint64_t, char, DWORD, const char*, long> rows[] = {
        {2 * kChunk, 2 * kChunk + 8192, 0, 0, "rlwkdx", 0},
        {kChunk + 1000, 3 * kChunk, 0, 0, "rlwkdx", 0},              // a quota, or a sector kept aside
        {kChunk + 4096, kChunk + 4096, 0, 0, "rlwkdx", 0},           // all is counted
        {kChunk + 512, 0, 'l', ERROR_INVALID_FUNCTION, "rlwkdx", 0}, // no such question
        {kChunk, kChunk, 'l', ERROR_CRC, "rl", ERROR_CRC},
        {kChunk, kChunk, 'k', ERROR_NOT_READY, "rlwk", ERROR_NOT_READY},
        {kChunk, kChunk, 'k', ERROR_INVALID_FUNCTION, "rlwkdx", 0}, // no file system that could
        {kChunk, kChunk, 'd', ERROR_NOT_READY, "rlwkd", ERROR_NOT_READY},
        {kChunk, kChunk, 'x', ERROR_INVALID_FUNCTION, "rlwkdx", 0}};
    Writes writes([](auto original, HANDLE file, LPCVOID data, DWORD size, auto... rest) {
        const bool isAligned = positionOf(file) % 4096 == 0;
        SetLastError(ERROR_INVALID_PARAMETER); // as of a disk with large sectors
        return (isAligned && size % 4096 == 0) || size == 512 ? original(file, data, size, rest...) : FALSE;
    });
    for (const auto& [byFiles, byDevice, fails, how, taken, code] : rows) {
        SCOPED_TRACE(testing::Message() << byFiles << " of " << byDevice << " fails " << fails);
        counted = byFiles, length = byDevice, failing = fails, failure = how;
        const std::size_t all = std::max(counted, length);
        writeBytes(at(L"device"), Bytes(all, 0xE5));
        steps.clear(), wiper->setNeedsReboot(0), total = 2 * counted;
        EXPECT_EQ(wipe(kWipePartition, L"Q:\\", kWipeZeros, 2), code);
        EXPECT_EQ(steps, taken);
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
            SetLastError(ERROR_ACCESS_DENIED);
            return code != FSCTL_LOCK_VOLUME || left == 0 || --left < 0;
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

namespace {
/// A volume with the free space and the largest file size of a row.
class FullVolume : public RealWindows
{
protected:
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
        for (const std::wstring& name : kNames) {
            WIN32_FILE_ATTRIBUTE_DATA data{};
            bytes +=
                GetFileAttributesExW(at(name).c_str(), GetFileExInfoStandard, &data) ? data.nFileSizeLow : 0;
        }
        return bytes;
    }
    [[nodiscard]] std::size_t fillers() const
    {
        return std::count_if(std::begin(kNames), std::end(kNames),
                             [this](auto& name) { return isThere(at(name)); });
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
        LARGE_INTEGER end{};
        GetFileSizeEx(file, &end);
        const std::uint64_t stop = positionOf(file) + size;
        if (stop > now->largest ||
            (stop > std::uint64_t(end.QuadPart) && taken() + stop - end.QuadPart > now->room)) {
            SetLastError(now->full);
            return FALSE;
        }
        const BOOL written = original(file, data, size, rest...);
        seen = std::max(seen, fillers());
        return written;
    }};
    Flushes flushes{[](auto, HANDLE) { return TRUE; }};
};
} // namespace

TEST_F(FullVolume, EndsTheFillersAndAFilesEndBeginsTheNext)
{
    const std::uint64_t none = ~0ULL;
    const Row rows[] = {
        {3 * kChunk, 3 * kChunk, none, ERROR_DISK_FULL, 0, 1},
        {3 * kChunk, 2 * kChunk + 2560, none, ERROR_DISK_FULL, 0, 1}, // somebody took the last clusters
        {4 * kChunk, 2 * kChunk, none, ERROR_DISK_FULL, ERROR_DISK_FULL, 2}, // there was never more
        {4 * kChunk, 4 * kChunk, kChunk * 3 / 2, ERROR_DISK_FULL, 0, 3},
        {5 * kChunk - 1, 5 * kChunk - 1, 2 * kChunk, ERROR_FILE_TOO_LARGE, 0, 3},
        {2 * kChunk + 3000, 2 * kChunk + 3000, 2 * kChunk, ERROR_DISK_FULL, 0, 2},
        {3 * kChunk, 3 * kChunk, 2 * kChunk - 512, ERROR_FILE_TOO_LARGE, 0, 2},
        {3 * kChunk, 3 * kChunk, 2 * kChunk - 512, ERROR_DISK_FULL, 0, 2, kWipeGutmann}};
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message()
                     << row.told << " " << row.room << " " << row.largest << " " << row.full);
        now = &row, seen = 0, total = row.told;
        long fills = 0;
        std::uint64_t most = 0;
        onChunk = [&] { most = std::max(most, taken()), ++fills; };
        EXPECT_EQ(wipe(kWipeFreeSpace, at(L""), row.method), row.code);
        EXPECT_EQ(seen, std::min<std::size_t>(row.files, row.code == 0 ? 9 : 1));
        EXPECT_TRUE(row.code != 0 || (progress.done == progress.total && fills != 0));
        EXPECT_TRUE(row.code != 0 || most == row.told || (row.room < row.told && most + kChunk > row.told));
        EXPECT_EQ(fillers(), 0U);
        EXPECT_TRUE(takeBootList().empty());
    }
}

TEST_F(FullVolume, KeepsAFileOfSomebodysAndLosesWhatAnEarlierRunLeft)
{
    const Row rows[] = {{4 * kChunk, 4 * kChunk, kChunk * 3 / 2, ERROR_DISK_FULL, 0, 3},
                        {3 * kChunk, 3 * kChunk, ~0ULL, ERROR_DISK_FULL, 0, 1}};
    now = &rows[0];
    writeBytes(at(kNames[1]), secret);
    EXPECT_EQ(wipe(kWipeFreeSpace, at(L"")), 0);
    EXPECT_EQ(readBytes(at(kNames[1])), secret);
    DeleteFileW(at(kNames[1]).c_str());
    for (const std::wstring& name : {kNames[0], kNames[1]}) {
        writeBytes(at(name), secret);
        SetFileAttributesW(at(name).c_str(), FILE_ATTRIBUTE_HIDDEN);
    }
    now = &rows[1];
    EXPECT_EQ(wipe(kWipeFreeSpace, at(L"")), 0);
    EXPECT_EQ(fillers(), 0U);
}

TEST_F(RealWindows, HolesAreLeft)
{
    const Marked marked(FILE_ATTRIBUTE_SPARSE_FILE);
    std::vector<std::pair<std::uint64_t, DWORD>> written;
    Writes writes([&](auto original, HANDLE file, LPCVOID data, DWORD size, auto... rest) {
        written.emplace_back(positionOf(file), size);
        return original(file, data, size, rest...);
    });
    // Two parts between three holes; none where the system does not tell.
    const std::pair<std::uint64_t, std::uint64_t> parts[] = {{65536, 100000}, {3 * kChunk, kChunk + 5}};
    bool tells = true;
    Controls controls(
        [&](auto, HANDLE, DWORD code, LPVOID asked, DWORD, LPVOID result, DWORD, LPDWORD size, auto) -> BOOL {
            EXPECT_EQ(code, DWORD{FSCTL_QUERY_ALLOCATED_RANGES});
            SetLastError(ERROR_INVALID_FUNCTION);
            if (!tells)
                return FALSE;
            const auto from =
                std::uint64_t(static_cast<FILE_ALLOCATED_RANGE_BUFFER*>(asked)->FileOffset.QuadPart);
            auto* range = static_cast<FILE_ALLOCATED_RANGE_BUFFER*>(result);
            *size = 0;
            for (const auto& [begin, count] : parts) {
                if (begin + count <= from)
                    continue;
                range->FileOffset.QuadPart = LONGLONG(begin), range->Length.QuadPart = LONGLONG(count);
                *size = sizeof *range;
                SetLastError(ERROR_MORE_DATA);
                return &count == &parts[1].second;
            }
            return TRUE;
        });
    const std::size_t size = 5 * kChunk;
    for (const bool isTold : {true, false}) {
        tells = isTold, total = 2 * size, written.clear();
        writeBytes(at(L"file"), Bytes(size, 0xE5));
        EXPECT_EQ(wipe(kWipeFile, at(L"file"), kWipeZeros, 2), 0);
        std::vector<std::pair<std::uint64_t, DWORD>> expected = {
            {65536, 100000}, {3 * kChunk, kChunk}, {4 * kChunk, 5}};
        if (!isTold)
            for (expected.clear(); expected.size() < 5;)
                expected.emplace_back(expected.size() * kChunk, kChunk);
        const auto once = expected;
        expected.insert(expected.end(), once.begin(), once.end());
        EXPECT_EQ(written, expected);
        EXPECT_EQ(progress.total, isTold ? 2 * (kChunk + 100005) : 2 * size);
        EXPECT_EQ(progress.done, progress.total);
    }
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(RealWindows, WhatIsInTheCloudIsNotFetchedUnlessThatIsAskedFor)
{
    for (const DWORD elsewhere : {0x00040000, 0x00400000}) {
        const Marked marked(elsewhere);
        prepare();
        files.reset();
        EXPECT_EQ(wipeFile(), ERROR_FILE_OFFLINE);
        EXPECT_EQ(files.calls(), 1); // as itself
        EXPECT_EQ(readBytes(at(L"file")), secret);
        EXPECT_EQ(wiper->getNeedsReboot(), 0U);
        EXPECT_EQ(wipeFile(kWipeZeros | kWipeCloudFiles), 0);
        EXPECT_FALSE(isThere(at(L"file")));
    }
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(RealWindows, HiddenFilesAreMadeAnewAndReadOnlyOnesRefuse)
{
    const auto create = [this] {
        return codeOf([this] { std::unique_ptr<IFile>(DllGetFile(at(L"file").c_str(), 0))->create(); });
    };
    bool refusesAlways = false;
    files.setHook([&](auto open, LPCWSTR name, auto... rest) {
        constexpr DWORD kMarks = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
        SetLastError(ERROR_ACCESS_DENIED);
        const bool refuses = std::get<3>(std::tuple(rest...)) == CREATE_ALWAYS &&
                             (refusesAlways || (GetFileAttributesW(name) & kMarks) != 0);
        return refuses ? INVALID_HANDLE_VALUE : open(name, rest...);
    });
    const std::tuple<DWORD, bool, unsigned long> rows[] = {
        {FILE_ATTRIBUTE_HIDDEN, false, 0},
        {FILE_ATTRIBUTE_SYSTEM, false, 0},
        {FILE_ATTRIBUTE_HIDDEN, true, 5},
        {FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY, false, 5},
        {FILE_ATTRIBUTE_NORMAL, true, 5}};
    for (const auto& [attributes, always, code] : rows) {
        SetFileAttributesW(at(L"file").c_str(), FILE_ATTRIBUTE_NORMAL);
        writeBytes(at(L"file"), secret);
        SetFileAttributesW(at(L"file").c_str(), attributes);
        const DWORD before = GetFileAttributesW(at(L"file").c_str());
        refusesAlways = always;
        EXPECT_EQ(create(), code) << attributes;
        EXPECT_EQ(readBytes(at(L"file")).size(), code == 0 ? 0 : secret.size());
        EXPECT_TRUE(code == 0 || GetFileAttributesW(at(L"file").c_str()) == before) << attributes;
    }
    SetFileAttributesW(at(L"file").c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(RealWindows, OlderSystemsLoadTheirLibrariesByTheWholePath)
{
    std::vector<std::wstring> asked;
    Replaced<"LoadLibraryExW", decltype(&LoadLibraryExW)> loads(
        [&](auto load, LPCWSTR name, HANDLE file, DWORD flags) -> HMODULE {
            asked.emplace_back(name);
            SetLastError(ERROR_INVALID_PARAMETER);
            return flags == LOAD_LIBRARY_SEARCH_SYSTEM32 ? nullptr : load(name, file, flags);
        });
    EXPECT_EQ(wipeFile(), 0);
    wchar_t folder[MAX_PATH];
    GetSystemDirectoryW(folder, MAX_PATH);
    EXPECT_EQ(asked, (std::vector<std::wstring>{L"ntdll.dll", std::wstring(folder) + L"\\ntdll.dll"}));
}

TEST_F(RealWindows, NoMoreIsTakenForWrittenThanWasGiven)
{
    Writes writes([](auto original, HANDLE file, LPCVOID data, DWORD size, LPDWORD put, auto* at) {
        const BOOL written = original(file, data, size, put, at);
        *put *= 2;
        return written;
    });
    EXPECT_EQ(wipeFile(), 0);
    const std::unique_ptr<IFile> item(DllGetFile(at(L"file").c_str(), 0));
    item->setData("abc", 3);
    EXPECT_EQ(codeOf([&] { item->create(); }), 0U);
    EXPECT_EQ(readBytes(at(L"file")), (Bytes{'a', 'b', 'c'}));
}

TEST(ShadowCopies, AreToldByTheVolumesNamesOfThem)
{
    const HMODULE own = GetModuleHandleW(nullptr); // the console program's question is compiled in here
    CountedImport<"DeviceIoControl", decltype(&DeviceIoControl)> control(own);
    CountedImport<"CreateFileW", Opens::Original> opens(own);
    opens.setHook([](auto open, LPCWSTR name, DWORD access, DWORD share, auto... rest) {
        EXPECT_TRUE(std::wcscmp(name, L"\\\\.\\C:") != 0 || share == (FILE_SHARE_READ | FILE_SHARE_WRITE));
        return open(name, access, share, rest...);
    });
    const std::tuple<ULONG, DWORD, BOOL, DWORD, bool> rows[] = {{2, 8, TRUE, 0, false},
                                                                {100, 8, TRUE, 0, true},
                                                                {100, 8, FALSE, ERROR_MORE_DATA, true},
                                                                {100, 0, FALSE, ERROR_ACCESS_DENIED, false}};
    for (const auto& [bytes, size, told, code, has] : rows) {
        control.setHook([&, names = bytes, given = size, answer = told,
                         failure = code](auto, HANDLE, DWORD question, LPVOID, DWORD, LPVOID result, DWORD,
                                         LPDWORD returned, auto) {
            EXPECT_EQ(question, 0x534018U);
            *static_cast<ULONG*>(result) = names, *returned = given;
            SetLastError(failure);
            return answer;
        });
        EXPECT_EQ(hasShadowCopies(L"C:\\"), has) << bytes << " " << code;
    }
    EXPECT_EQ(opens.calls(), 4);
}

TEST(Output, GoesToConsolesAsCharactersAndElsewhereAsBytes)
{
    const HMODULE own = GetModuleHandleW(nullptr); // as above
    bool isConsole = false;
    CountedImport<"GetConsoleMode", decltype(&GetConsoleMode)> modes(own);
    modes.setHook([&](auto...) -> BOOL { return isConsole; });
    std::vector<std::string> written;
    const std::pair<BOOL, int> complete{TRUE, 2}, partial{TRUE, 1}, nothing{TRUE, 0}, gone{FALSE, 0};
    std::pair<BOOL, int> answer;
    const auto take = [&](std::size_t unit) {
        return [&, unit](auto, HANDLE, LPCVOID data, DWORD count, LPDWORD taken, auto...) -> BOOL {
            *taken = answer == complete ? 2 * count : answer == partial ? (count + 1) / 2 : 0;
            SetLastError(ERROR_BROKEN_PIPE);
            written.emplace_back(static_cast<const char*>(data), std::min(*taken, count) * unit);
            return answer.first;
        };
    };
    CountedImport<"WriteFile", decltype(&WriteFile)> files(own);
    CountedImport<"WriteConsoleW", BOOL(WINAPI*)(HANDLE, const void*, DWORD, LPDWORD, LPVOID)> consoles(own);
    files.setHook(take(1)), consoles.setHook(take(sizeof(wchar_t)));
    const std::wstring text = std::wstring(8191, L'a') + L"\xD83D\xDE00" + std::wstring(9000, L'\u00E9');
    for (const bool toConsole : {true, false})
        for (const auto& how : {complete, partial, nothing, gone}) {
            isConsole = toConsole, answer = how, written.clear();
            Output output(STD_OUTPUT_HANDLE);
            output.write(text);
            output.flush();
            std::string all,
                expected(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
            for (const std::string& part : written)
                all += part;
            if (!toConsole)
                expected = std::string(8191, 'a') + "\xF0\x9F\x98\x80";
            for (int i = 0; !toConsole && i < 9000; ++i)
                expected += "\xC3\xA9";
            EXPECT_EQ(output.isTerminal(), toConsole);
            EXPECT_EQ(output.isOpen(), how == complete || how == partial);
            EXPECT_TRUE(output.isOpen() ? all == expected : all.empty()) << all.size();
            EXPECT_EQ(output.failure(), output.isOpen() ? 0U
                                        : how == gone   ? ERROR_BROKEN_PIPE
                                                        : ERROR_WRITE_FAULT);
            EXPECT_TRUE(!toConsole || how != complete || written[0].size() == 8191 * sizeof(wchar_t));
        }
}
