// What changes between filling a stack, looking and wiping.

#include <functional>

#include "support/Wipe.h"

namespace {
constexpr std::uint32_t kOpenToWipe = 0x04000080; // the flags of the open that deletes
constexpr std::size_t kChunk = 1048576;
std::function<void()> onChunk;

/// A tree "tree\sub\one, two", and outside of it "precious\one, two", which nobody ever names.
class WipeSwapTest : public testing::Test
{
protected:
    WipeSwapTest() : folder(scratchFolder()), wiper(DllGetWiper())
    {
        takeBootList();
        for (const wchar_t* name : {L"tree", L"tree\\sub", L"precious"})
            CreateDirectoryW(at(name).c_str(), nullptr);
        for (const wchar_t* name : {L"tree\\sub\\one", L"tree\\sub\\two"})
            writeBytes(at(name), Bytes(1000, 0xE5));
        for (const wchar_t* name : {L"precious\\one", L"precious\\two"})
            writeBytes(at(name), Bytes(1000, 0x50));
        attributes.setHook([this](auto original, LPCWSTR path) {
            const DWORD real = original(path);
            const bool isSwapped = real != INVALID_FILE_ATTRIBUTES && std::wstring(path) == linkPath;
            return isSwapped ? real | FILE_ATTRIBUTE_REPARSE_POINT : real;
        });
    }
    ~WipeSwapTest() override { onChunk = nullptr; }

    [[nodiscard]] std::wstring at(const std::wstring& name) const { return folder + L"\\" + name; }
    [[nodiscard]] HeapStringW heapAt(const wchar_t* name) const { return HeapStringW(at(name).c_str()); }

    /// Puts what is at `other` where `victim` is. Links cannot be made here: a folder that takes another's
    /// place is made believe to be a link to where it came from.
    bool swap(const std::wstring& victim, const std::wstring& other)
    {
        if (!MoveFileW(at(victim).c_str(), at(L"aside").c_str()))
            return false;
        EXPECT_TRUE(MoveFileW(at(other).c_str(), at(victim).c_str()));
        return true;
    }
    bool swapFolder()
    {
        const bool swapped = swap(L"tree\\sub", L"precious");
        if (swapped)
            linkPath = at(L"tree\\sub");
        return swapped;
    }
    /// Whether all that is precious is still there as it was, wherever it is by now.
    [[nodiscard]] int preciousFiles() const
    {
        int found = 0;
        for (const wchar_t* name : {L"precious\\one", L"precious\\two", L"tree\\sub\\one", L"tree\\sub\\two"})
            found += readBytes(at(name)) == Bytes(1000, 0x50) ? 1 : 0;
        return found;
    }
    long wipe(std::uint32_t kind, const std::wstring& path, std::uint32_t method = kWipeZeros,
              std::uint32_t passes = 1, HANDLE event = nullptr)
    {
        progress = WipeProgress();
        const auto callback = [](WipeProgress*) {
            if (onChunk)
                onChunk();
        };
        return wiper->Wipe(callback, &progress, kind, path.c_str(), &stack, nullptr, method, passes, event);
    }

    std::wstring folder, linkPath;
    std::unique_ptr<IWiper> wiper;
    DirectoryStack stack;
    WipeProgress progress;
    CountedImport<"GetFileAttributesW", decltype(&GetFileAttributesW)> attributes{sysmaintModule()};
    CountedImport<"CreateFileW",
                  HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)>
        files{sysmaintModule()};
};
} // namespace

TEST_F(WipeSwapTest, FoldersThatBecomeLinksKeepWhatTheyLeadTo)
{
    enum class Moment
    {
        BeforeTheCall,
        DuringAFile,
        BeforeTheNextFile,
        BeforeTheRemoval
    };
    struct Case
    {
        Moment moment;
        long code;
        std::size_t left; // on the stack
    };
    const Case cases[] = {{Moment::BeforeTheCall, 681, 4},
                          {Moment::DuringAFile, 0, 0}, // held: it cannot be swapped
                          {Moment::BeforeTheNextFile, 0, 0},
                          {Moment::BeforeTheRemoval, ERROR_DIR_NOT_EMPTY, 2}};
    const std::wstring original = folder;
    int number = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(++number);
        folder = original + L"\\" + std::to_wstring(number);
        CreateDirectoryW(folder.c_str(), nullptr);
        for (const wchar_t* name : {L"tree", L"tree\\sub", L"precious"})
            CreateDirectoryW(at(name).c_str(), nullptr);
        for (const wchar_t* name : {L"one", L"two"}) {
            writeBytes(at(L"tree\\sub\\") + name, Bytes(1000, 0xE5));
            writeBytes(at(L"precious\\") + name, Bytes(1000, 0x50));
        }
        const HeapStringW sub = heapAt(L"tree\\sub");
        stack = {{heapAt(L"tree"), L"", true, false},
                 {sub, L"", true, false},
                 {L"one", sub, false, false},
                 {L"two", sub, false, false}};
        bool swapped = false;
        CountedImport<"RemoveDirectoryW", decltype(&RemoveDirectoryW)> removals(sysmaintModule());
        removals.setHook([&](auto remove, LPCWSTR path) {
            if (c.moment == Moment::BeforeTheRemoval && removals.calls() == 1)
                swapped = swapFolder();
            return remove(path);
        });
        long opens = 0;
        files.setHook([&](auto open, LPCWSTR name, DWORD access, DWORD share, auto* security,
                          DWORD disposition, DWORD flags, HANDLE model) {
            if (c.moment == Moment::BeforeTheNextFile && flags == kOpenToWipe && ++opens == 2)
                swapped = swapFolder();
            return open(name, access, share, security, disposition, flags, model);
        });
        onChunk = [&] { swapped = swapped || (c.moment == Moment::DuringAFile && swapFolder()); };
        if (c.moment == Moment::BeforeTheCall)
            swapped = swapFolder();
        EXPECT_EQ(wipe(kWipeDirectoryStack, at(L"tree")), c.code);
        EXPECT_EQ(swapped, c.code != 0);
        EXPECT_EQ(stack.size(), c.left);
        EXPECT_EQ(preciousFiles(), 2);
        EXPECT_EQ(isThere(at(L"tree")), c.code != 0) << "what is held can be removed in the end";
        onChunk = nullptr;
        linkPath.clear();
    }
    folder = original;
}

TEST_F(WipeSwapTest, FilesThatBecomeOthersAreLeft)
{
    CountedImport<"SetFileInformationByHandle", decltype(&SetFileInformationByHandle)> setting(
        sysmaintModule());
    CountedImport<"GetFileInformationByHandle", decltype(&GetFileInformationByHandle)> asking(
        sysmaintModule());
    for (const bool canTakeBack : {false, true}) {
        // A link is followed by the open, or another file has taken the place.
        long takenBack = 0;
        setting.setHook([&](auto set, HANDLE file, auto what, LPVOID data, DWORD size) -> BOOL {
            if (static_cast<int>(what) != 21)
                return set(file, what, data, size);
            ++takenBack;
            EXPECT_EQ(*static_cast<DWORD*>(data), 8U);
            SetLastError(ERROR_INVALID_PARAMETER);
            return canTakeBack;
        });
        files.setHook([&](auto open, LPCWSTR name, DWORD access, DWORD share, auto* security,
                          DWORD disposition, DWORD flags, HANDLE model) {
            const bool isSwapped = flags == kOpenToWipe && swap(L"tree\\sub\\one", L"precious\\one");
            return open(name, access, share, security, disposition,
                        // the platform of the tests cannot take it back
                        isSwapped && canTakeBack ? FILE_ATTRIBUTE_NORMAL : flags, model);
        });
        EXPECT_EQ(wipe(kWipeFile, at(L"tree\\sub\\one")), ERROR_FILE_INVALID);
        EXPECT_EQ(takenBack, 1);
        EXPECT_EQ(preciousFiles(), 2);
        EXPECT_EQ(readBytes(at(L"aside")), Bytes(1000, 0xE5));
        EXPECT_FALSE(isThere(at(L"tree\\sub\\one.kept")));
        EXPECT_TRUE(takeBootList().empty());
        MoveFileW(at(L"tree\\sub\\one").c_str(), at(L"precious\\one").c_str());
        MoveFileW(at(L"aside").c_str(), at(L"tree\\sub\\one").c_str());
    }
    // What was opened cannot be told.
    files.setHook(nullptr);
    setting.setHook(nullptr);
    asking.failCall(2, FALSE, ERROR_NOT_READY);
    EXPECT_EQ(wipe(kWipeFile, at(L"tree\\sub\\one")), ERROR_NOT_READY);
    EXPECT_EQ(readBytes(at(L"tree\\sub\\one")), Bytes(1000, 0xE5));
    asking.failCall(0, FALSE, 0);
    takeBootList();

    // The filler's name belongs to another file when it is opened to be deleted, or already before.
    CountedImport<"GetDiskFreeSpaceExW", decltype(&GetDiskFreeSpaceExW)> space(sysmaintModule());
    space.setHook([](auto, LPCWSTR, auto*, auto*, auto* free) -> BOOL {
        free->QuadPart = 0;
        return TRUE;
    });
    files.setHook([&](auto open, LPCWSTR name, DWORD access, DWORD share, auto* security, DWORD disposition,
                      DWORD flags, HANDLE model) {
        if (access == GENERIC_ALL && disposition == OPEN_EXISTING)
            swap(L"FreeSpaceFile.qmx", L"precious\\one");
        return open(name, access, share, security, disposition, flags, model);
    });
    EXPECT_EQ(wipe(kWipeFreeSpace, folder + L"\\"), ERROR_FILE_INVALID);
    EXPECT_EQ(readBytes(at(L"FreeSpaceFile.qmx")), Bytes(1000, 0x50));
    files.setHook(nullptr);
    EXPECT_EQ(wipe(kWipeFreeSpace, folder + L"\\"), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(readBytes(at(L"FreeSpaceFile.qmx")), Bytes(1000, 0x50));
    EXPECT_EQ(wipe(kWipeFreeSpace, L""), ERROR_INVALID_PARAMETER); // not that of the current folder
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(WipeSwapTest, PathsMeanWhatTheyMeantWhenTheCallBegan)
{
    // The same names below "base", which is current at first, and below "other", which is so from the first
    // chunk on. Drive-relative paths go by the same current folder.
    wchar_t before[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, before);
    const std::wstring drive = folder.substr(0, 2);
    for (const std::wstring& form : {std::wstring(L"rel"), drive + L"rel", std::wstring(L".\\rel"),
                                     std::wstring(L"..\\base/rel"), at(L"base\\.\\rel")}) {
        SCOPED_TRACE(testing::Message() << form);
        for (const wchar_t* name : {L"base", L"base\\rel", L"other", L"other\\rel"})
            CreateDirectoryW(at(name).c_str(), nullptr);
        for (const wchar_t* name : {L"base\\rel\\x", L"base\\rel\\y", L"other\\rel\\x", L"other\\rel\\y"})
            writeBytes(at(name), Bytes(10, 0xE5));
        SetCurrentDirectoryW(at(L"base").c_str());
        onChunk = [&] { SetCurrentDirectoryW(at(L"other").c_str()); };
        const HeapStringW rel(form.c_str());
        stack = {{rel, L"", true, false}, {L"x", rel, false, false}, {L"y", rel, false, false}};
        EXPECT_EQ(wipe(kWipeDirectoryStack, form), 0);
        SetCurrentDirectoryW(before);
        EXPECT_FALSE(isThere(at(L"base\\rel")));
        EXPECT_TRUE(isThere(at(L"other\\rel\\x")) && isThere(at(L"other\\rel\\y")));
    }
}

TEST_F(WipeSwapTest, ProgressCountsWhatWasOverwrittenWhole)
{
    // Two chunks, twice: so many bytes are counted when the call of that number fails or is cancelled in it.
    constexpr std::size_t kSize = kChunk + 10;
    CountedImport<"WriteFile", decltype(&WriteFile)> writes(sysmaintModule());
    CountedImport<"FlushFileBuffers", decltype(&FlushFileBuffers)> flushes(sysmaintModule());
    flushes.setHook([](auto, HANDLE) { return TRUE; }); // the medium is not the matter here
    const Event event;
    for (const std::uint32_t method : {1U, 3U})
        for (const std::uint32_t kind : {kWipeFile, kWipeDirectoryStack})
            for (const bool cancelled : {false, true})
                for (const long call : {1L, 2L, 3L, 34L, 35L, 36L, 70L, 71L, 105L, 140L}) {
                    const long each = method == 3 ? 35 : 1; // writes to a chunk
                    if (call > 4 * each)
                        continue;
                    SCOPED_TRACE(testing::Message() << "method " << method << ", kind " << kind << ", call "
                                                    << call << ", cancelled " << cancelled);
                    writeBytes(at(L"tree\\file"), Bytes(kSize, 0xE5));
                    stack = {{L"file", heapAt(L"tree"), false, false}};
                    ResetEvent(event.handle);
                    writes.reset();
                    writes.setHook([&](auto write, HANDLE file, LPCVOID data, DWORD size, auto* put,
                                       auto* overlapped) -> BOOL {
                        if (writes.calls() == call && !cancelled) {
                            SetLastError(ERROR_CRC);
                            return FALSE;
                        }
                        if (writes.calls() == call)
                            SetEvent(event.handle);
                        return write(file, data, size, put, overlapped);
                    });
                    EXPECT_EQ(wipe(kind, kind == kWipeFile ? at(L"tree\\file") : at(L"tree"), method, 2,
                                   event.handle),
                              cancelled ? ERROR_CANCELLED : ERROR_CRC);
                    // One write to a chunk is over before the event is looked at; 35 are cut short.
                    const long whole = (cancelled && method == 1 ? call : call - 1) / each;
                    EXPECT_EQ(progress.done, whole / 2 * kSize + (whole % 2 != 0 ? kChunk : 0));
                    EXPECT_FALSE(isThere(at(L"tree\\file")));
                }
    takeBootList();
}
