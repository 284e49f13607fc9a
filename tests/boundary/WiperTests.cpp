#include "support/Faults.h"
#include "support/Passes.h"
#include "support/Wipe.h"

constexpr std::uint32_t kKinds[] = {kWipeFile, kWipeDirectoryStack, kWipeFreeSpace, kWipePartition};
using Seeks = Replaced<"SetFilePointerEx", decltype(&SetFilePointerEx)>;

/// Everything that the wiper does to one kind of object, on files in a separate folder. The volume is
/// simulated: its size and free space are answered here, and its device is a file.
struct WiperTest : WipeTest
{
    static constexpr std::uint64_t kSize = kChunk + 10;

    WiperTest()
    {
        files.setHook([this](auto original, LPCWSTR name, auto... rest) {
            std::wstring path = std::wcscmp(name, L"\\\\.\\Q:") == 0 ? at(L"device") : name;
            if (const auto colon = path.find(L":secret"); colon != std::wstring::npos)
                path.replace(colon, std::wstring::npos, L".stream");
            return original(path.c_str(), rest...);
        });
        space.setHook([this](auto, LPCWSTR, auto*, auto* total, auto* free) {
            WIN32_FILE_ATTRIBUTE_DATA data{};
            GetFileAttributesExW(filler.c_str(), GetFileExInfoStandard, &data);
            auto* asked = free != nullptr ? free : total;
            asked->QuadPart = kSize - (asked == free ? std::min<ULONGLONG>(kSize, data.nFileSizeLow) : 0);
            return TRUE;
        });
    }

    long wipe(std::uint32_t kind, std::uint32_t method = kWipeZeros, std::uint32_t passes = 1,
              HANDLE event = nullptr)
    {
        const std::wstring below = at(kind == kWipeFile ? L"file" : L"");
        return WipeTest::wipe(kind, kind == kWipePartition ? L"Q:\\" : below, method, passes, event);
    }
    /// What a call of any kind must destroy, and a neighbour that it must not.
    void prepare(std::size_t size)
    {
        secret = Bytes(size, 0xE5);
        CreateDirectoryW(at(L"tree").c_str(), nullptr);
        for (const wchar_t* name : {L"file", L"tree\\one", L"tree\\two", L"device", L"neighbour"})
            writeBytes(at(name), secret);
        const HeapStringW tree(at(L"tree").c_str());
        stack = {{tree, L"", true, false}, {L"one", tree, false, false}, {L"two", tree, false, false}};
        wiper->setNeedsReboot(0);
        handles = processHandleCount();
    }
    void expectNothingElseChanged() const
    {
        EXPECT_TRUE(readBytes(at(L"neighbour")) == secret && !isThere(filler));
        EXPECT_EQ(processHandleCount(), handles);
    }

    /// Whether a file that was opened to be wiped is still there.
    [[nodiscard]] bool isLeft(std::uint32_t kind) const
    {
        return (kind == kWipeFile && isThere(at(L"file"))) ||
               (kind == kWipeDirectoryStack && isThere(at(L"tree\\two")));
    }
    /// The bytes of so many chunks of files, or of repetitions, of kSize.
    static std::uint64_t bytesOf(long chunks) { return chunks / 2 * kSize + (chunks % 2 != 0 ? kChunk : 0); }

    const std::wstring filler = at(L"FreeSpaceFile.qmx");
    Bytes secret;
    DWORD handles = 0;
    FreeSpaceQueries space;
};

TEST_F(WiperTest, WritesExactlyTheBytesOfEveryPassAndChunkAndCallsNothingInVain)
{
    std::vector<std::pair<std::uint64_t, Bytes>> writes;
    Writes writing(before([&](HANDLE file, LPCVOID data, DWORD size, auto...) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        writes.emplace_back(positionOf(file), Bytes(bytes, bytes + size));
    }));
    Flushes flushes;
    Seeks seeks;
    Polls polls;
    const TestEvent event;
    const std::tuple<std::size_t, std::uint32_t, std::uint32_t> cases[] = {
        {0, 1, 2}, {5, 1, 0},          {5, 1, 3},          {2 * kChunk, 1, 1}, {4 * kChunk, 3, 1},
        {7, 2, 2}, {kChunk + 3, 2, 2}, {kChunk + 1, 3, 1}, {1001, 3, 2}};
    for (const auto& [size, method, passes] : cases) {
        SCOPED_TRACE(testing::Message() << size << " bytes by method " << method);
        prepare(size);
        SetFileAttributesW(at(L"file").c_str(),
                           FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
        writes.clear(), flushes.reset(), seeks.reset(), polls.reset();
        ASSERT_EQ(wipe(kWipeFile, method, passes, event.get()), 0);
        EXPECT_FALSE(isThere(at(L"file")));
        EXPECT_EQ(progress.done, size * passes);
        const std::size_t each = method == 3 ? 35 : 1, chunks = (size + kChunk - 1) / kChunk;
        const std::size_t count = chunks * passes * each;
        ASSERT_EQ(writes.size(), count);
        EXPECT_EQ(flushes.calls() - count, 0U);
        // One is for the cut.
        EXPECT_EQ(seeks.calls() - (method == 3 ? count : 0), (size == 0 ? 0 : passes) + 1U);
        EXPECT_EQ(polls.calls() - chunks * passes * (method == 3 ? 36 : 1), passes + 1U);
        for (std::size_t n = 0; n < count; ++n) {
            const auto& [offset, bytes] = writes[n];
            ASSERT_EQ(offset, n / each % chunks * kChunk) << n;
            ASSERT_EQ(bytes.size(), std::min(size - offset, kChunk)) << n;
            const unsigned pass = method == 1 ? 0 : method == 2 ? kText : kPasses[n % each];
            ASSERT_TRUE(areOf(pass, bytes)) << n;
            ASSERT_TRUE(method != 2 || std::equal(bytes.begin(), bytes.end(), writes[0].second.begin()));
            ASSERT_TRUE(method != 3 || pass != kText || bytes.size() % 2 == 0 || bytes.back() == 0) << n;
        }
    }
}

TEST_F(WiperTest, EveryFailingCallIsReportedAndNothingIsLeft)
{
    for (const std::uint32_t kind : kKinds) {
        const auto run = [&](const std::string& what, long call) {
            SCOPED_TRACE(testing::Message() << what << " call " << call << ", kind " << kind);
            prepare(kSize); // uses no function of the DLL, so it does not count
            const long code = wipe(kind, kWipeZeros, 2);
            long failure = FailingCall::hasCome() ? long{kFailure} : 0;
            const bool removal =
                what == "SetEndOfFile" || what == "DeleteFileW" || (what == "CreateFileW" && call % 2 == 0);
            // The check afterwards: an open also shows what is gone. The filler: the second way removes it.
            if ((what == "GetFileAttributesW" && code == 0) || (kind == kWipeFreeSpace && removal))
                failure = 0;
            EXPECT_EQ(code, failure != 0 && what == "GetProcAddress" ? ERROR_FUNCTION_FAILED : failure);
            expectNothingElseChanged();
            // A file waits for the restart when its own wipe failed. What goes before, the loading of the
            // library, is no file's failure.
            const bool own = failure != 0 && what != "LoadLibraryExW";
            // A deleted one does not, nor the filler: a later file with its name is another one.
            const bool waits = own && kind == kWipeFile && isThere(at(L"file"));
            EXPECT_EQ(!takeBootList().empty(), waits);
            EXPECT_EQ(wiper->getNeedsReboot(), waits || (own && kind == kWipePartition) ? 1U : 0U);
            EXPECT_EQ(stack.empty(), kind == kWipeDirectoryStack && failure == 0);
            const bool isOpen = failure == 0 || what == "WriteFile" || what == "FlushFileBuffers";
            EXPECT_FALSE(isOpen && isLeft(kind));
            EXPECT_TRUE(failure == 0 || !isOpen || progress.done == bytesOf(call - 1)) << progress.done;
        };
        failCallsOf({"CreateFileW", "FindFirstStreamW", "GetFileAttributesW"}, -1, run);
        failCallsOf({"GetDiskFreeSpaceExW", "WriteFile", "FlushFileBuffers", "SetFilePointerEx",
                     "GetFileSizeEx", "SetEndOfFile", "LoadLibraryExW", "GetProcAddress", "DeleteFileW",
                     "RemoveDirectoryW"},
                    0, run);
    }
}

TEST_F(WiperTest, CancelledAtAnyMomentItLeavesNothingBehind)
{
    const TestEvent event;
    long moment = 0; // even: a poll, odd: a flush
    Polls polls(before([&](auto...) {
        if (2 * polls.calls() == moment)
            event.set();
    }));
    Flushes flushes([&](auto, HANDLE) { // the medium does not matter here
        if (2 * flushes.calls() + 1 == moment)
            event.set();
        return TRUE;
    });
    for (const std::uint32_t number : {0U, 1U, 2U, 3U, 4U}) {
        const std::uint32_t kind = kKinds[number % 4], method = number == 4 ? kWipeZeros : kWipeGutmann;
        const long step = number == 4 ? 1 : 3; // of all moments an odd one, then an even one
        long end = 1;
        for (moment = 0; moment < end; moment += step) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << " at " << moment);
            prepare(kSize);
            polls.reset(), flushes.reset();
            const long code = wipe(kind, method, 1, event.get());
            end = moment == 0 ? 2 * polls.calls() - 2 : end; // what comes then is too late
            // Between the last poll and the end there is nothing left to cancel.
            EXPECT_EQ(code, WaitForSingleObject(event.get(), 0) == WAIT_OBJECT_0 ? ERROR_CANCELLED : 0);
            const long each = method == kWipeGutmann ? 35 : 1; // the last may not count yet
            EXPECT_LE(progress.done, bytesOf(flushes.calls() / each));
            EXPECT_GE(progress.done, bytesOf((flushes.calls() - (each == 1 ? 0 : 1)) / each));
            EXPECT_FALSE(flushes.calls() != 0 && isLeft(kind));
            expectNothingElseChanged();
            EXPECT_TRUE(takeBootList().empty() && wiper->getNeedsReboot() == 0U);
            ResetEvent(event.get());
        }
    }
}

TEST_F(WiperTest, CutsAndDeletesItsOwnFillerAlone)
{
    prepare(10);
    Writes writes(1, FALSE, ERROR_DISK_FULL); // the volume is full only for a moment
    EXPECT_TRUE(wipe(kWipeFreeSpace) == 0 && progress.done == kSize);
    expectNothingElseChanged();
    // Truncated while it is open, because somebody may open it next.
    long cuts = 0;
    Settings cutting(after([&](BOOL cut, HANDLE file, auto...) {
        cuts += cut && GetFileSize(file, nullptr) == 0 ? 1 : 0;
        files.failCall(1, INVALID_HANDLE_VALUE, ERROR_IO_DEVICE);
    }));
    Deletions deleting;
    // Only what cannot be deleted either goes on the list.
    for (const bool canBeDeleted : {true, false}) {
        if (!canBeDeleted)
            deleting.failCall(1, FALSE, ERROR_IO_DEVICE);
        EXPECT_EQ(wipe(kWipeFreeSpace), canBeDeleted ? 0 : ERROR_IO_DEVICE);
        EXPECT_TRUE(std::exchange(cuts, 0) == 1 && takeBootList().empty() == canBeDeleted);
        EXPECT_EQ(isThere(filler), !canBeDeleted);
        files.failCall(0, nullptr, 0);
    }
    DeleteFileW(filler.c_str());
    cutting.setHook(nullptr);

    // A second name of a file; a file that cannot be identified; a file that is not hidden as ours are.
    ASSERT_TRUE(CreateHardLinkW(filler.c_str(), at(L"neighbour").c_str(), nullptr));
    for (const DWORD mark : {FILE_ATTRIBUTE_HIDDEN, FILE_ATTRIBUTE_NORMAL}) {
        SetFileAttributesW(filler.c_str(), mark);
        EXPECT_EQ(wipe(kWipeFreeSpace), ERROR_ALREADY_EXISTS);
    }
    DeleteFileW(filler.c_str());
    Looks asking;
    for (const bool isThereBefore : {false, true}) {
        expectNothingElseChanged();
        if (isThereBefore)
            writeBytes(filler, secret);
        asking.failCall(1, FALSE, ERROR_NETNAME_DELETED);
        EXPECT_EQ(wipe(kWipeFreeSpace), ERROR_NETNAME_DELETED);
    }
    asking.failCall(0, FALSE, 0);
    EXPECT_TRUE(wipe(kWipeFreeSpace) == ERROR_ALREADY_EXISTS && readBytes(filler) == secret);
}

TEST_F(WiperTest, DecompressesAFillerInACompressedFolderAlone)
{
    prepare(10);
    Looks asking;
    Controls control;
    EXPECT_TRUE(wipe(kWipeFreeSpace) == 0 && control.calls() == 0);
    asking.setHook(after(
        [](BOOL, HANDLE, auto* information) { information->dwFileAttributes |= FILE_ATTRIBUTE_COMPRESSED; }));
    for (const BOOL works : {FALSE, TRUE}) {
        control.failCall(1, works, ERROR_WRITE_PROTECT);
        EXPECT_EQ(wipe(kWipeFreeSpace), works ? 0 : ERROR_WRITE_PROTECT);
        EXPECT_EQ(control.calls(), 1);
        expectNothingElseChanged();
    }
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(WiperTest, FreeSpaceProgressFollowsWhatOthersTakeAndFree)
{
    const std::uint64_t free[] = {3 * kChunk, 1 * kChunk, kChunk / 2, 0}; // others: took, freed, nothing
    space.setHook([&](auto, LPCWSTR, auto*, auto*, auto* bytes) {
        bytes->QuadPart = free[space.calls() - 1];
        return TRUE;
    });
    std::vector<std::uint64_t> totals;
    onChunk = [&] { totals.push_back(progress.total); };
    total = 3 * kChunk;
    EXPECT_EQ(wipe(kWipeFreeSpace), 0);
    const std::vector<std::uint64_t> expected = {2 * kChunk, 5 * kChunk / 2, 5 * kChunk / 2, 5 * kChunk / 2};
    EXPECT_TRUE(totals == expected && progress.done == progress.total);
}

TEST_F(WiperTest, RemovesLinksAndLeavesAloneWhatTheyLeadTo)
{
    prepare(1000);
    // The tests' platform shows no links to files, so one is simulated; its target is a second name of the
    // file.
    const std::wstring file = at(L"file"), target = at(L"target");
    ASSERT_TRUE(CreateHardLinkW(target.c_str(), file.c_str(), nullptr));
    DWORD tag = IO_REPARSE_TAG_SYMLINK;
    AskedHandle tags(after([&](BOOL, HANDLE, auto, LPVOID data, DWORD) {
        auto& info = *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(data);
        info.FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        info.ReparseTag = tag;
    }));
    EXPECT_TRUE(wipe(kWipeFile, kWipeGutmann) == 0 && !isThere(file) && readBytes(target) == secret);

    // A link to a folder is removed like a folder.
    CreateDirectoryW(file.c_str(), nullptr);
    EXPECT_TRUE(wipe(kWipeFile) == 0 && !isThere(file) && takeBootList().empty());

    // What cannot be identified is not touched.
    ASSERT_TRUE(CreateHardLinkW(file.c_str(), target.c_str(), nullptr));
    tags.failCall(2, FALSE, ERROR_NOT_READY);
    EXPECT_TRUE(wipe(kWipeFile) == ERROR_NOT_READY && readBytes(file) == secret);

    // Other reparse points are the file itself, and its names share what is destroyed.
    tag = IO_REPARSE_TAG_DEDUP;
    EXPECT_TRUE(wipe(kWipeFile) == 0 && !isThere(file) && isThere(target) && readBytes(target).empty());
}

TEST_F(WiperTest, OverwritesStreamsToo)
{
    std::wstring owner; // has a stream "secret"
    std::size_t written = 0;
    const HANDLE search = &written;
    const Writes writes(before([&](HANDLE, LPCVOID, DWORD size, auto*, auto* listEnd) {
        written += listEnd == nullptr ? size : 0;
    }));
    const auto tell = [](LPVOID data, const wchar_t* name) {
        std::wcscpy(static_cast<WIN32_FIND_STREAM_DATA*>(data)->cStreamName, name);
        SetLastError(ERROR_HANDLE_EOF);
    };
    const Replaced<"FindFirstStreamW", decltype(&FindFirstStreamW)> first(
        [&](auto, LPCWSTR path, auto, LPVOID data, DWORD) {
            tell(data, L"::$DATA");
            return path == owner ? search : INVALID_HANDLE_VALUE;
        });
    Replaced<"FindNextStreamW", decltype(&FindNextStreamW)> next([&](auto, HANDLE, LPVOID data) -> BOOL {
        tell(data, L":secret:$DATA");
        return next.calls() == 1;
    });
    const Replaced<"FindClose", decltype(&FindClose)> close(
        [&](auto original, HANDLE handle) { return handle == search || original(handle); });
    bool isOthers = false;
    const Looks identity(after([&](BOOL, HANDLE, auto* information) {
        if (!isOthers) // a stream has its file's number
            information->nFileIndexLow = information->nFileIndexHigh = 0;
    }));
    // The search that fails; a stream of another file than the one examined: a link was put in between.
    const std::size_t size = kChunk + 3;
    for (const std::uint32_t kind : {kWipeFile, kWipeDirectoryStack})
        for (const long code : {ERROR_CRC, ERROR_FILE_INVALID, ERROR_SUCCESS}) {
            owner = at(kind == kWipeFile ? L"file" : L"tree");
            writeBytes(owner + L".stream", Bytes(size, 0xE5));
            prepare(10);
            stack.resize(kind == kWipeDirectoryStack && code != 0 ? 1 : stack.size()); // the folder alone
            written = 0;
            isOthers = code == ERROR_FILE_INVALID;
            next.failCall(code == ERROR_CRC ? 1 : 0, FALSE, ERROR_CRC);
            EXPECT_EQ(wipe(kind), code);
            EXPECT_EQ(isThere(owner), code != 0);
            EXPECT_TRUE(isThere(owner + L".stream"));
            EXPECT_EQ(readBytes(owner + L".stream").size(), code == 0 ? 0 : size);
            EXPECT_EQ(written, code != 0 ? 0 : size + (kind == kWipeFile ? 10 : 20));
            EXPECT_TRUE(takeBootList().empty() || code == ERROR_CRC);
            EXPECT_TRUE(code != 0 || progress.total == size);
        }
}

TEST_F(WiperTest, AnswersWrongAndHarmlessArguments)
{
    prepare(10);
    const std::wstring path = at(L"file");
    const wchar_t* file = path.c_str();
    const std::unique_ptr<IScanValidator> refusing(DllGetScanValidator(L"*.other:011", L""));
    const TestEvent event(true);
    const auto expect = [&](long code, std::uint32_t kind, const wchar_t* what, std::uint32_t method = 1,
                            DirectoryStack* entries = nullptr, IScanValidator* validator = nullptr,
                            HANDLE cancelled = nullptr) {
        EXPECT_EQ(wiper->Wipe(nullptr, nullptr, kind, what, entries, validator, method, 1, cancelled), code);
    };
    for (const wchar_t* volume : {L"", L"Q", L"Q:"})
        expect(static_cast<long>(0x80070057UL), kWipePartition, volume);
    EXPECT_EQ(wiper->getNeedsReboot(), 1U);
    wiper->setNeedsReboot(0);
    files.reset();
    expect(87, kWipeFile, nullptr);
    expect(87, kWipeDirectoryStack, file);
    expect(87, kWipeFreeSpace, L""); // not that of the current folder
    expect(87, 7, nullptr);
    for (const std::uint32_t kind : {0U, 1U, 3U, 7U})
        expect(0, kind, file, 1, &stack);
    expect(0, kWipeFile, file, 1, nullptr, refusing.get());
    expect(0, kWipePartition, L"Q:\\", 1, nullptr, refusing.get());
    for (const std::uint32_t kind : kKinds) {
        expect(87, kind, file, 4, &stack);
        expect(1223, kind, kind == kWipePartition ? L"Q:\\" : file, 1, &stack, nullptr, event.get());
    }
    EXPECT_EQ(files.calls(), 2); // the device, whose first chunk polls
    EXPECT_TRUE(readBytes(path) == secret && readBytes(at(L"device")) == secret);
    EXPECT_TRUE(stack.size() == 3U && takeBootList().empty());
    EXPECT_EQ(wiper->getNeedsReboot(), 0U);
}

TEST_F(WiperTest, StacksKeepSkippedEntriesAndStopAtAFailure)
{
    prepare(10);
    stack[1].skip = true; // "one": it stays, and so must its folder
    EXPECT_EQ(wipe(kWipeDirectoryStack), ERROR_DIR_NOT_EMPTY);
    ASSERT_EQ(stack.size(), 1U);
    EXPECT_TRUE(isThere(at(L"tree\\one")) && !isThere(at(L"tree\\two")));
    stack[0].skip = true;
    EXPECT_TRUE(wipe(kWipeDirectoryStack) == 0 && stack.empty());

    // The root of a local disk stays and ends the walk.
    Replaced<"QueryDosDeviceW", decltype(&QueryDosDeviceW)> devices([](auto, LPCWSTR, LPWSTR target, DWORD) {
        std::wcscpy(target, L"\\Device\\HarddiskVolume7");
        return 24UL;
    });
    Removals removals;
    stack = {{L"", L"", true, false}, {L"Q:\\", L"", true, false}};
    EXPECT_TRUE(wipe(kWipeDirectoryStack) == 0 && stack.size() == 1U);
    EXPECT_EQ(removals.calls(), 0);
    stack = {{L"Q:\\", L"", true, false}};
    devices.failCall(1, 0, ERROR_FILE_NOT_FOUND);
    EXPECT_NE(wipe(kWipeDirectoryStack), 0) << "no drive, nothing removed";
}
