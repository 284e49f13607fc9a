#include "support/Wipe.h"

#include <cstring>
#include <cwchar>
#include <random>
#include <set>

namespace {
constexpr std::uint64_t kChunk = 1048576;

struct Write
{
    std::uint64_t offset;
    Bytes bytes;
};

/// Everything that the wiper does to one kind of object, on files of a folder of its own. The volume is made
/// believe: its size and free space are answered here, and its device is a file.
class WiperTest : public testing::Test
{
protected:
    static constexpr std::uint64_t kFree = kChunk + 1024;

    WiperTest() : folder(scratchFolder()), wiper(DllGetWiper())
    {
        takeBootList();
        files.setHook([this](auto original, LPCWSTR name, DWORD access, DWORD share, auto* security,
                             DWORD disposition, DWORD flags, HANDLE model) {
            std::wstring path = name;
            if (path == L"\\\\.\\Q:")
                path = folder + L"\\device";
            if (const auto colon = path.find(L":secret"); colon != std::wstring::npos)
                path.replace(colon, std::wstring::npos, L".stream");
            return original(path.c_str(), access, share, security, disposition, flags, model);
        });
        space.setHook([this](auto, LPCWSTR, auto* available, auto* total, auto* free) -> BOOL {
            if (available != nullptr)
                available->QuadPart = 0;
            if (total != nullptr)
                total->QuadPart = kFree;
            if (free != nullptr) {
                WIN32_FILE_ATTRIBUTE_DATA data{};
                GetFileAttributesExW(filler().c_str(), GetFileExInfoStandard, &data);
                free->QuadPart = kFree - std::min<std::uint64_t>(kFree, data.nFileSizeLow);
            }
            return TRUE;
        });
    }
    ~WiperTest() override { takeBootList(); }

    [[nodiscard]] std::wstring at(const wchar_t* name) const { return folder + L"\\" + name; }
    [[nodiscard]] std::wstring filler() const { return at(L"FreeSpaceFile.qmx"); }

    long wipe(std::uint32_t kind, std::uint32_t method, std::uint32_t passes = 1, HANDLE event = nullptr)
    {
        const std::wstring path = kind == kWipeFile        ? at(L"file")
                                  : kind == kWipePartition ? std::wstring(L"Q:\\")
                                                           : folder + L"\\";
        progress = WipeProgress();
        return wiper->Wipe([](WipeProgress*) {}, &progress, kind, path.c_str(), &stack, nullptr, method,
                           passes, event);
    }

    /// What a call of any kind is to destroy, and a neighbour that it is not to.
    void prepare(std::size_t size)
    {
        const Bytes secret(size, 0xE5);
        CreateDirectoryW(at(L"tree").c_str(), nullptr);
        for (const wchar_t* name : {L"file", L"tree\\one", L"tree\\two", L"device", L"neighbour"})
            writeBytes(at(name), secret);
        const HeapStringW tree(at(L"tree").c_str());
        stack = {{tree, L"", true, false}, {L"one", tree, false, false}, {L"two", tree, false, false}};
        wiper->setNeedsReboot(0);
    }
    void expectNothingElseChanged(std::size_t size, const std::string& about)
    {
        EXPECT_EQ(readBytes(at(L"neighbour")), Bytes(size, 0xE5)) << about;
        EXPECT_FALSE(isThere(filler())) << about;
        EXPECT_EQ(processHandleCount(), handles) << about;
    }

    std::wstring folder;
    std::unique_ptr<IWiper> wiper;
    DirectoryStack stack;
    WipeProgress progress;
    DWORD handles = 0;
    CountedImport<"CreateFileW",
                  HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)>
        files{sysmaintModule()};
    CountedImport<"GetDiskFreeSpaceExW", decltype(&GetDiskFreeSpaceExW)> space{sysmaintModule()};
};

/// The bytes of a pass, from the published table and the one place where ours departs from it.
Bytes expectedPass(unsigned pass, std::size_t size)
{
    static const char* const kTable[35] = {"",       "",       "",       "",   "55",     "AA",     "924924",
                                           "492492", "249249", "00",     "11", "22",     "33",     "44",
                                           "55",     "66",     "77",     "88", "99",     "AA",     "BB",
                                           "CC",     "DD",     "EE",     "FF", "924924", "492492", "6DB6DB",
                                           "6DB6DB", "B6DB6D", "DB6DB6", "",   "",       "",       ""};
    const std::string text = kTable[pass];
    Bytes bytes(text.empty() ? 0 : size);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(std::stoi(text.substr(i * 2 % text.size(), 2), nullptr, 16));
    return bytes;
}

/// Up to the last byte of an odd number, which the methods end differently.
bool isRandomText(const Bytes& bytes)
{
    for (std::size_t i = 0; i < bytes.size() / 2 * 2; ++i)
        if (i % 2 != 0 ? bytes[i] != 0 : std::isalnum(bytes[i]) == 0)
            return false;
    return true;
}

TEST_F(WiperTest, WritesExactlyTheBytesOfEveryPassAndChunk)
{
    struct Case
    {
        std::size_t size;
        std::uint32_t method, passes;
        std::vector<std::size_t> chunks; // per repetition
    };
    const Case cases[] = {
        {0, 1, 2, {}},
        {5, 1, 0, {}},
        {5, 1, 3, {5}},
        {2 * kChunk, 1, 1, {kChunk, kChunk}},
        {7, 2, 2, {7}},
        {kChunk + 3, 2, 2, {kChunk, 3}},
        {kChunk + 1, 3, 1, {kChunk, 1}},
        {1001, 3, 2, {1001}},
    };
    std::vector<Write> writes;
    CountedImport<"WriteFile", decltype(&WriteFile)> writing(sysmaintModule());
    writing.setHook(
        [&](auto original, HANDLE file, LPCVOID data, DWORD size, auto* written, auto* overlapped) {
            LARGE_INTEGER position{};
            SetFilePointerEx(file, {}, &position, FILE_CURRENT);
            const auto* bytes = static_cast<const unsigned char*>(data);
            writes.push_back({static_cast<std::uint64_t>(position.QuadPart), Bytes(bytes, bytes + size)});
            return original(file, data, size, written, overlapped);
        });
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.size << " bytes by method " << c.method);
        prepare(c.size);
        SetFileAttributesW(at(L"file").c_str(),
                           FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
        writes.clear();
        ASSERT_EQ(wipe(kWipeFile, c.method, c.passes), 0);
        EXPECT_FALSE(isThere(at(L"file")));
        EXPECT_EQ(progress.done, c.size * c.passes);
        const unsigned passesPerChunk = c.method == 3 ? 35 : 1;
        ASSERT_EQ(writes.size(), c.chunks.size() * c.passes * passesPerChunk);
        auto write = writes.begin();
        for (std::uint32_t repetition = 0; repetition < c.passes; ++repetition) {
            std::uint64_t offset = 0;
            for (const std::size_t chunk : c.chunks) {
                for (unsigned pass = 0; pass < passesPerChunk; ++pass, ++write) {
                    ASSERT_EQ(write->offset, offset) << "pass " << pass;
                    ASSERT_EQ(write->bytes.size(), chunk) << "pass " << pass;
                    const Bytes fixed = c.method == 1   ? Bytes(chunk, 0)
                                        : c.method == 2 ? Bytes()
                                                        : expectedPass(pass, chunk);
                    const bool asItMust = fixed.empty() ? isRandomText(write->bytes) : write->bytes == fixed;
                    ASSERT_TRUE(asItMust) << "pass " << pass;
                    const bool odd = c.method == 3 && fixed.empty() && chunk % 2 != 0;
                    ASSERT_TRUE(!odd || write->bytes.back() == 0) << "pass " << pass;
                    const bool sameText =
                        c.method != 2 || std::memcmp(write->bytes.data(), writes[0].bytes.data(), chunk) == 0;
                    ASSERT_TRUE(sameText);
                }
                offset += chunk;
            }
        }
    }
}

TEST_F(WiperTest, MakesNoMoreCallsThanTheChunksNeed)
{
    CountedImport<"WriteFile", decltype(&WriteFile)> writes(sysmaintModule());
    CountedImport<"FlushFileBuffers", decltype(&FlushFileBuffers)> flushes(sysmaintModule());
    CountedImport<"SetFilePointerEx", decltype(&SetFilePointerEx)> seeks(sysmaintModule());
    CountedImport<"WaitForSingleObject", decltype(&WaitForSingleObject)> polls(sysmaintModule());
    const Event event;
    for (const std::uint32_t method : {1U, 2U, 3U}) {
        prepare(4 * kChunk);
        writes.reset(), flushes.reset(), seeks.reset(), polls.reset();
        ASSERT_EQ(wipe(kWipeFile, method, 1, event.handle), 0);
        const long each = method == 3 ? 4 * 35 : 4;
        EXPECT_EQ(writes.calls(), each);
        EXPECT_EQ(flushes.calls(), each);
        EXPECT_EQ(seeks.calls(), (method == 3 ? each : 0) + 2); // to begin with, and before the cut
        EXPECT_EQ(polls.calls(), each + 2 + (method == 3 ? 4 : 0));
    }
}

/// Fails the first, a middle and the last call of one function and checks what the object says then.
template <ImportName Name, class Function, class Run>
void failCalls(typename CountedImport<Name, Function>::Value result, DWORD code, Run&& run)
{
    CountedImport<Name, Function> import(sysmaintModule());
    import.reset();
    run(0, std::string(Name.text) + " intact");
    const long calls = import.calls();
    for (const long call : std::set<long>{1, (calls + 1) / 2, calls}) {
        if (call == 0 || call > calls)
            continue;
        import.failCall(call, result, code);
        run(code, std::string(Name.text) + " call " + std::to_string(call) + " of " + std::to_string(calls));
        import.failCall(0, result, 0);
    }
}
} // namespace

TEST_F(WiperTest, EveryFailingCallIsReportedAndNothingIsLeft)
{
    constexpr std::size_t kSize = kChunk + 10;
    const auto run = [&](std::uint32_t kind) {
        return [this, kind](long failure, const std::string& what) {
            const std::string about = what + ", kind " + std::to_string(kind);
            // Preparing uses no function of the DLL, so it does not count.
            prepare(kSize);
            handles = processHandleCount();
            const bool missingFunction = what.find("GetProcAddress") == 0 && failure != 0;
            EXPECT_EQ(wipe(kind, 1, 2), missingFunction ? 1627 : failure) << about;
            expectNothingElseChanged(kSize, about);
            const std::wstring list = takeBootList();
            // A file waits for the restart when its own wipe failed, the filler when its removal did. What
            // goes before, the loading of the library, is no file's failure.
            const bool ownFailure = failure != 0 && what.find("LoadLibrary") == std::string::npos;
            const bool removal = what.find("SetEndOfFile") == 0 || what.find("DeleteFileW") == 0 ||
                                 what.find("CreateFileW call 4") == 0 || what.find("CreateFileW call 2") == 0;
            const bool listed = kind == kWipeFile        ? ownFailure
                                : kind == kWipeFreeSpace ? ownFailure && removal
                                                         : false;
            EXPECT_EQ(!list.empty(), listed) << about;
            EXPECT_EQ(wiper->getNeedsReboot(), listed || (kind == kWipePartition && ownFailure) ? 1U : 0U)
                << about;
            EXPECT_EQ(kind == kWipeDirectoryStack && stack.empty(),
                      kind == kWipeDirectoryStack && failure == 0)
                << about;
            EXPECT_FALSE(kind == kWipeFile && failure == 0 && isThere(at(L"file"))) << about;
        };
    };
    for (const std::uint32_t kind : {kWipeFile, kWipeDirectoryStack, kWipeFreeSpace, kWipePartition}) {
        failCalls<"WriteFile", decltype(&WriteFile)>(FALSE, ERROR_CRC, run(kind));
        failCalls<"FlushFileBuffers", decltype(&FlushFileBuffers)>(FALSE, ERROR_IO_DEVICE, run(kind));
        failCalls<"SetFilePointerEx", decltype(&SetFilePointerEx)>(FALSE, ERROR_SEEK, run(kind));
        failCalls<"GetFileSizeEx", decltype(&GetFileSizeEx)>(FALSE, ERROR_GEN_FAILURE, run(kind));
        failCalls<"SetEndOfFile", decltype(&SetEndOfFile)>(FALSE, ERROR_USER_MAPPED_FILE, run(kind));
        failCalls<"LoadLibraryExW", decltype(&LoadLibraryExW)>(nullptr, ERROR_MOD_NOT_FOUND, run(kind));
        failCalls<"GetProcAddress", decltype(&GetProcAddress)>(nullptr, ERROR_PROC_NOT_FOUND, run(kind));
        failCalls<"DeleteFileW", decltype(&DeleteFileW)>(FALSE, ERROR_SHARING_VIOLATION, run(kind));
        failCalls<"RemoveDirectoryW", decltype(&RemoveDirectoryW)>(FALSE, ERROR_DIR_NOT_EMPTY, run(kind));
        failCalls<"FindFirstStreamW", decltype(&FindFirstStreamW)>(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED,
                                                                   run(kind));
        failCalls<"GetFileAttributesW", decltype(&GetFileAttributesW)>(INVALID_FILE_ATTRIBUTES,
                                                                       ERROR_NETNAME_DELETED, run(kind));
        failCalls<"SetFileAttributesW", decltype(&SetFileAttributesW)>(FALSE, 0, run(kind)); // shows later
        const auto runKind = run(kind);
        space.reset(), files.reset();
        runKind(0, "intact");
        const std::pair<long, long> calls(files.calls(), space.calls());
        for (const long call : std::set<long>{1, (calls.first + 1) / 2, calls.first}) {
            files.failCall(call, INVALID_HANDLE_VALUE, ERROR_SHARING_VIOLATION);
            runKind(ERROR_SHARING_VIOLATION, "CreateFileW call " + std::to_string(call));
            files.failCall(0, nullptr, 0);
        }
        for (const long call : std::set<long>{1, (calls.second + 1) / 2, calls.second}) {
            if (call == 0 || call > calls.second)
                continue;
            space.failCall(call, FALSE, ERROR_NOT_READY);
            runKind(ERROR_NOT_READY, "GetDiskFreeSpaceExW call " + std::to_string(call));
            space.failCall(0, FALSE, 0);
        }
    }
}

TEST_F(WiperTest, CancelledAtAnyMomentItLeavesNothingBehind)
{
    constexpr std::size_t kSize = kChunk + 10;
    std::mt19937 random(1); // NOLINT: the same moments every time
    CountedImport<"WaitForSingleObject", decltype(&WaitForSingleObject)> polls(sysmaintModule());
    CountedImport<"FlushFileBuffers", decltype(&FlushFileBuffers)> flushes(sysmaintModule());
    const Event event;
    long moment = 0;
    const auto cancelAt = [&](long now) {
        if (now == moment)
            SetEvent(event.handle);
    };
    polls.setHook([&](auto original, HANDLE handle, DWORD timeout) {
        cancelAt(2 * polls.calls());
        return original(handle, timeout);
    });
    flushes.setHook([&](auto, HANDLE) -> BOOL { // the medium is not the matter here
        cancelAt(2 * flushes.calls() + 1);
        return TRUE;
    });
    for (const std::uint32_t kind : {kWipeFile, kWipeDirectoryStack, kWipeFreeSpace, kWipePartition}) {
        prepare(kSize);
        moment = 0;
        polls.reset();
        ASSERT_EQ(wipe(kind, kWipeGutmann, 1, event.handle), 0);
        const long last = polls.calls();
        for (int i = 0; i < 100; ++i) {
            prepare(kSize);
            handles = processHandleCount();
            moment = 2 + static_cast<long>(random() % static_cast<unsigned>(2 * last - 4));
            polls.reset(), flushes.reset();
            const std::string about = "kind " + std::to_string(kind) + " at " + std::to_string(moment);
            const long code = wipe(kind, kWipeGutmann, 1, event.handle);
            // Between the last poll and the end there is nothing left to cancel.
            const bool signalled = WaitForSingleObject(event.handle, 0) == WAIT_OBJECT_0;
            EXPECT_EQ(code, signalled ? ERROR_CANCELLED : 0) << about;
            expectNothingElseChanged(kSize, about);
            EXPECT_TRUE(takeBootList().empty()) << about;
            EXPECT_EQ(wiper->getNeedsReboot(), 0U) << about;
            ResetEvent(event.handle);
        }
    }
}

TEST_F(WiperTest, FillsAFullVolumeToTheLastPieceBeforeItFails)
{
    // The volume counts bytes as free that it has no room for beyond these.
    constexpr std::uint64_t kRoom = 700000ULL / 512 * 512;
    std::uint64_t taken = 0;
    CountedImport<"WriteFile", decltype(&WriteFile)> writes(sysmaintModule());
    writes.setHook(
        [&](auto original, HANDLE file, LPCVOID data, DWORD size, auto* written, auto* overlapped) -> BOOL {
            if (overlapped == nullptr && taken + size > kRoom) {
                SetLastError(ERROR_DISK_FULL);
                return FALSE;
            }
            taken += overlapped == nullptr ? size : 0;
            return original(file, data, size, written, overlapped);
        });
    prepare(10);
    handles = processHandleCount();
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), ERROR_DISK_FULL);
    EXPECT_EQ(taken, kRoom);
    expectNothingElseChanged(10, "full");
    EXPECT_TRUE(takeBootList().empty());

    // One that is full for a moment alone.
    writes.setHook(nullptr);
    writes.failCall(1, FALSE, ERROR_DISK_FULL);
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), 0);
    EXPECT_EQ(progress.done, kFree);
    expectNothingElseChanged(10, "full for a moment");

    // The filler is cut while it is open, whoever opens it next; a second name of a file is none.
    long cuts = 0;
    CountedImport<"SetFileInformationByHandle", decltype(&SetFileInformationByHandle)> cutting(
        sysmaintModule());
    cutting.setHook([&](auto original, HANDLE file, FILE_INFO_BY_HANDLE_CLASS what, LPVOID data, DWORD size) {
        const BOOL cut = original(file, what, data, size);
        cuts += cut && GetFileSize(file, nullptr) == 0 ? 1 : 0;
        files.failCall(1, INVALID_HANDLE_VALUE, ERROR_SHARING_VIOLATION);
        return cut;
    });
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(cuts, 1);
    cutting.setHook(nullptr);
    files.failCall(0, nullptr, 0);
    EXPECT_FALSE(takeBootList().empty());
    ASSERT_TRUE(CreateHardLinkW(filler().c_str(), at(L"neighbour").c_str(), nullptr));
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(readBytes(at(L"neighbour")), Bytes(10, 0xE5));
    DeleteFileW(filler().c_str());

    // A filler that nobody can tell the links of; one in a compressed folder, which must not stay so.
    CountedImport<"GetFileInformationByHandle", decltype(&GetFileInformationByHandle)> asking(
        sysmaintModule());
    CountedImport<"DeviceIoControl", decltype(&DeviceIoControl)> control(sysmaintModule());
    asking.failCall(1, FALSE, ERROR_NETNAME_DELETED);
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), ERROR_NETNAME_DELETED);
    expectNothingElseChanged(10, "links");
    writeBytes(filler(), Bytes(10, 0x3C));
    asking.failCall(1, FALSE, ERROR_NETNAME_DELETED);
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), ERROR_NETNAME_DELETED);
    asking.failCall(0, FALSE, 0);
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(readBytes(filler()), Bytes(10, 0x3C)) << "it was there before and is not hidden as ours are";
    SetFileAttributesW(filler().c_str(), FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), 0);
    EXPECT_FALSE(isThere(filler())) << "left by an earlier run";
    EXPECT_EQ(control.calls(), 0);
    asking.setHook([](auto original, HANDLE file, auto* information) {
        const BOOL asked = original(file, information);
        information->dwFileAttributes |= FILE_ATTRIBUTE_COMPRESSED;
        return asked;
    });
    control.failCall(1, FALSE, ERROR_WRITE_PROTECT);
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), ERROR_WRITE_PROTECT);
    expectNothingElseChanged(10, "compressed");
    control.failCall(1, TRUE, 0);
    EXPECT_EQ(wipe(kWipeFreeSpace, kWipeZeros), 0);
    EXPECT_EQ(control.calls(), 1);
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(WiperTest, FreeSpaceProgressFollowsWhatOthersTakeAndFree)
{
    std::vector<std::uint64_t> free = {3 * kChunk, 1 * kChunk, kChunk / 2, 0}; // others: took, freed, nothing
    std::size_t next = 0;
    space.setHook([&](auto, LPCWSTR, auto*, auto*, auto* bytes) -> BOOL {
        bytes->QuadPart = free.at(next++);
        return TRUE;
    });
    static std::vector<WipeProgress> seen;
    seen.clear();
    WipeProgress counter{0, 3 * kChunk};
    ASSERT_EQ(wiper->Wipe([](WipeProgress* now) { seen.push_back(*now); }, &counter, kWipeFreeSpace,
                          (folder + L"\\").c_str(), nullptr, nullptr, kWipeZeros, 1, nullptr),
              0);
    const std::uint64_t totals[] = {2 * kChunk, 2 * kChunk + kChunk / 2, 2 * kChunk + kChunk / 2,
                                    2 * kChunk + kChunk / 2};
    ASSERT_EQ(seen.size(), 4U);
    for (std::size_t i = 0; i < seen.size(); ++i)
        EXPECT_EQ(seen[i].total, totals[i]) << i;
    EXPECT_EQ(seen.back().done, seen.back().total);
}

TEST_F(WiperTest, RemovesLinksAndLeavesAloneWhatTheyLeadTo)
{
    prepare(1000);
    // The platform of the tests shows no links to files, so one is made believe; its target is a second name
    // of the file.
    ASSERT_TRUE(CreateHardLinkW(at(L"target").c_str(), at(L"file").c_str(), nullptr));
    DWORD tag = IO_REPARSE_TAG_SYMLINK;
    CountedImport<"GetFileInformationByHandleEx", decltype(&GetFileInformationByHandleEx)> tags(
        sysmaintModule());
    tags.setHook([&](auto original, HANDLE file, auto what, LPVOID data, DWORD size) {
        const BOOL told = original(file, what, data, size);
        auto& info = *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(data);
        info.FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        info.ReparseTag = tag;
        return told;
    });
    EXPECT_EQ(wipe(kWipeFile, kWipeGutmann), 0);
    EXPECT_FALSE(isThere(at(L"file")));
    EXPECT_EQ(readBytes(at(L"target")), Bytes(1000, 0xE5));

    // A link to a folder goes as a folder does.
    CreateDirectoryW(at(L"file").c_str(), nullptr);
    EXPECT_EQ(wipe(kWipeFile, kWipeZeros), 0);
    EXPECT_FALSE(isThere(at(L"file")));
    EXPECT_TRUE(takeBootList().empty());

    // What cannot be told is not touched.
    ASSERT_TRUE(CreateHardLinkW(at(L"file").c_str(), at(L"target").c_str(), nullptr));
    tags.failCall(2, FALSE, ERROR_NOT_READY);
    EXPECT_EQ(wipe(kWipeFile, kWipeZeros), ERROR_NOT_READY);
    EXPECT_EQ(readBytes(at(L"file")), Bytes(1000, 0xE5));
    EXPECT_TRUE(DeleteFileW(at(L"file").c_str()));

    // Other reparse points are the file itself, and its names share what is destroyed.
    tag = IO_REPARSE_TAG_DEDUP;
    ASSERT_TRUE(CreateHardLinkW(at(L"file").c_str(), at(L"target").c_str(), nullptr));
    EXPECT_EQ(wipe(kWipeFile, kWipeZeros), 0);
    EXPECT_FALSE(isThere(at(L"file")));
    EXPECT_TRUE(isThere(at(L"target")) && readBytes(at(L"target")).empty());
}

TEST_F(WiperTest, OverwritesAlternateStreamsToo)
{
    for (const std::uint32_t kind : {kWipeFile, kWipeDirectoryStack}) {
        prepare(10);
        writeBytes(at(kind == kWipeFile ? L"file.stream" : L"tree.stream"), Bytes(kChunk + 3, 0xE5));
        const std::wstring owner = at(kind == kWipeFile ? L"file" : L"tree");
        Bytes written;
        CountedImport<"WriteFile", decltype(&WriteFile)> writes(sysmaintModule());
        writes.setHook(
            [&](auto original, HANDLE file, LPCVOID data, DWORD size, auto* put, auto* overlapped) {
                written.insert(written.end(), size, *static_cast<const unsigned char*>(data));
                return original(file, data, size, put, overlapped);
            });
        CountedImport<"FindFirstStreamW", decltype(&FindFirstStreamW)> first(sysmaintModule());
        CountedImport<"FindNextStreamW", decltype(&FindNextStreamW)> next(sysmaintModule());
        CountedImport<"FindClose", decltype(&FindClose)> close(sysmaintModule());
        CountedImport<"GetFileInformationByHandle", decltype(&GetFileInformationByHandle)> identity(
            sysmaintModule());
        const HANDLE search = &written;
        first.setHook([&](auto, LPCWSTR path, auto, LPVOID data, DWORD) -> HANDLE {
            std::wcscpy(static_cast<WIN32_FIND_STREAM_DATA*>(data)->cStreamName, L"::$DATA");
            SetLastError(ERROR_HANDLE_EOF);
            return path == owner ? search : INVALID_HANDLE_VALUE;
        });
        next.setHook([&](auto, HANDLE, LPVOID data) -> BOOL {
            std::wcscpy(static_cast<WIN32_FIND_STREAM_DATA*>(data)->cStreamName, L":secret:$DATA");
            SetLastError(ERROR_HANDLE_EOF);
            return next.calls() == 1;
        });
        close.setHook([&](auto original, HANDLE handle) { return handle == search || original(handle); });
        stack.resize(1); // the folder alone
        next.failCall(1, FALSE, ERROR_CRC);
        EXPECT_EQ(wipe(kind, kWipeZeros), ERROR_CRC);
        EXPECT_TRUE(isThere(owner)) << "deleted with a stream that was not overwritten";
        // One that belongs to another file than the one looked at: a link was put in between.
        next.failCall(0, FALSE, 0);
        prepare(10);
        stack.resize(1);
        takeBootList();
        written.clear();
        EXPECT_EQ(wipe(kind, kWipeZeros), ERROR_FILE_INVALID);
        EXPECT_EQ(readBytes(owner + L".stream").size(), kChunk + 3);
        EXPECT_TRUE(isThere(owner));
        EXPECT_TRUE(written.empty() && takeBootList().empty());
        identity.setHook([](auto original, HANDLE file, auto* information) { // a stream has its file's number
            const BOOL told = original(file, information);
            information->nFileIndexLow = information->nFileIndexHigh = 0;
            return told;
        });
        prepare(10);
        next.failCall(0, FALSE, 0);
        EXPECT_EQ(wipe(kind, kWipeZeros), 0);
        EXPECT_EQ(written.size(), kChunk + 3 + (kind == kWipeFile ? 10U : 20U));
        EXPECT_EQ(progress.total, kChunk + 3U);
        EXPECT_TRUE(readBytes(owner + L".stream").empty() && isThere(owner + L".stream"));
        EXPECT_FALSE(isThere(owner));
    }
}

TEST_F(WiperTest, AnswersWrongAndHarmlessArguments)
{
    prepare(10);
    const std::wstring file = at(L"file");
    const auto call = [&](std::uint32_t kind, const wchar_t* path, DirectoryStack* entries,
                          std::uint32_t method, const IScanValidator* validator = nullptr,
                          HANDLE event = nullptr) {
        return wiper->Wipe(nullptr, nullptr, kind, path, entries, validator, method, 1, event);
    };
    EXPECT_EQ(call(kWipeFile, nullptr, nullptr, 1), 87);
    EXPECT_EQ(call(7, nullptr, nullptr, 1), 87);
    for (const std::uint32_t kind : {0U, 1U, 3U, 7U})
        EXPECT_EQ(call(kind, file.c_str(), &stack, 1), 0);
    for (const std::uint32_t kind : {kWipePartition, kWipeDirectoryStack, kWipeFile, kWipeFreeSpace})
        EXPECT_EQ(call(kind, file.c_str(), &stack, 4), 87);
    EXPECT_EQ(call(kWipeDirectoryStack, file.c_str(), nullptr, 1), 87);
    for (const wchar_t* volume : {L"", L"Q", L"Q:"})
        EXPECT_EQ(static_cast<unsigned long>(call(kWipePartition, volume, nullptr, 1)), 0x80070057UL);
    EXPECT_EQ(wiper->getNeedsReboot(), 1U);
    wiper->setNeedsReboot(0);
    const std::unique_ptr<IScanValidator> refusing(DllGetScanValidator(L"*.other:011", L""));
    EXPECT_EQ(call(kWipeFile, file.c_str(), nullptr, 1, refusing.get()), 0);
    EXPECT_EQ(call(kWipePartition, L"Q:\\", nullptr, 1, refusing.get()), 0);
    const Event event;
    SetEvent(event.handle);
    files.reset();
    for (const std::uint32_t kind : {kWipePartition, kWipeDirectoryStack, kWipeFile, kWipeFreeSpace})
        EXPECT_EQ(
            call(kind, kind == kWipePartition ? L"Q:\\" : file.c_str(), &stack, 1, nullptr, event.handle),
            1223);
    EXPECT_EQ(files.calls(), 1); // the device, whose first chunk polls
    EXPECT_EQ(readBytes(file), Bytes(10, 0xE5));
    EXPECT_EQ(readBytes(at(L"device")), Bytes(10, 0xE5));
    EXPECT_EQ(stack.size(), 3U);
    EXPECT_TRUE(takeBootList().empty());
    EXPECT_EQ(wiper->getNeedsReboot(), 0U);
}

TEST_F(WiperTest, StacksKeepSkippedEntriesAndStopAtAFailure)
{
    prepare(10);
    stack[1].skip = true; // "one": it stays, and so must its folder
    EXPECT_EQ(wipe(kWipeDirectoryStack, kWipeZeros), ERROR_DIR_NOT_EMPTY);
    ASSERT_EQ(stack.size(), 1U);
    EXPECT_TRUE(isThere(at(L"tree\\one")) && !isThere(at(L"tree\\two")));
    stack[0].skip = true;
    EXPECT_EQ(wipe(kWipeDirectoryStack, kWipeZeros), 0);
    EXPECT_TRUE(stack.empty());

    // The root of a local disk stays and ends the walk.
    CountedImport<"QueryDosDeviceW", decltype(&QueryDosDeviceW)> devices(sysmaintModule());
    devices.setHook([](auto, LPCWSTR, LPWSTR target, DWORD) -> DWORD {
        std::wcscpy(target, L"\\Device\\HarddiskVolume7");
        return 24;
    });
    CountedImport<"RemoveDirectoryW", decltype(&RemoveDirectoryW)> removals(sysmaintModule());
    stack = {{L"", L"", true, false}, {L"Q:\\", L"", true, false}};
    EXPECT_EQ(wipe(kWipeDirectoryStack, kWipeZeros), 0);
    EXPECT_EQ(stack.size(), 1U);
    EXPECT_EQ(removals.calls(), 0);
    stack = {{L"Q:\\", L"", true, false}};
    devices.failCall(1, 0, ERROR_FILE_NOT_FOUND);
    EXPECT_NE(wipe(kWipeDirectoryStack, kWipeZeros), 0) << "no drive, nothing removed";
}

TEST_F(WiperTest, HandlesLongAndOddNames)
{
    std::wstring deep = folder;
    for (int i = 0; i < 6; ++i) {
        deep += L"\\" + std::wstring(60, L'd');
        ASSERT_TRUE(CreateDirectoryW((L"\\\\?\\" + deep).c_str(), nullptr));
    }
    std::wstring slashes = L"//?/" + at(L"report."); // which Win32 would take for "report"
    std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
    const std::pair<std::wstring, std::wstring> cases[] = {{deep + L"\\file", deep + L"\\file"},
                                                           {at(L"report."), at(L"report.")},
                                                           {at(L"nul"), at(L"nul")},
                                                           {slashes, at(L"report.")},
                                                           {L"\\\\.\\" + at(L"report."), at(L"report.")}};
    for (const auto& [given, path] : cases) {
        writeBytes(at(L"report"), Bytes(3, 1));
        writeBytes(L"\\\\?\\" + path, Bytes(1000, 0xE5));
        EXPECT_EQ(wiper->Wipe(nullptr, nullptr, kWipeFile, given.c_str(), nullptr, nullptr, 2, 1, nullptr),
                  0);
        EXPECT_FALSE(isThere(L"\\\\?\\" + path));
        EXPECT_EQ(readBytes(at(L"report")), Bytes(3, 1));
    }
}
