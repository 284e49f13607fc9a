// What changes between filling a stack, checking and wiping.

#include "support/Links.h"
#include "support/Wipe.h"

/// A tree "tree\sub\one, two", and outside it "precious\one, two", which nobody ever names.
struct WipeSwapTest : WipeTest
{
    WipeSwapTest()
    {
        prepare();
        attributes.setHook([this](auto original, LPCWSTR path) {
            return original(path) | (path == linkPath ? FILE_ATTRIBUTE_REPARSE_POINT : 0);
        });
    }

    void prepare()
    {
        std::filesystem::create_directories(at(L"tree\\sub"));
        std::filesystem::create_directories(at(L"precious"));
        for (const wchar_t* name : {L"one", L"two"}) {
            writeBytes(at(L"tree\\sub\\") + name, named);
            writeBytes(at(L"precious\\") + name, precious);
        }
        linkPath.clear();
    }
    [[nodiscard]] HeapStringW heapAt(const wchar_t* name) const { return HeapStringW(at(name).c_str()); }
    bool move(const std::wstring& from, const std::wstring& to) const
    {
        return MoveFileW(at(from).c_str(), at(to).c_str()) != 0;
    }
    /// Replaces `victim` with `other`.
    bool swap(const std::wstring& victim, const std::wstring& other) const
    {
        return move(victim, L"aside") && move(other, victim);
    }
    /// All precious files still exist unchanged, in any place.
    void expectPrecious() const
    {
        for (const wchar_t* name : {L"\\one", L"\\two"})
            EXPECT_TRUE(readBytes(at(L"precious") + name) == precious ||
                        readBytes(at(L"tree\\sub") + name) == precious);
    }

    const Bytes precious = Bytes(1000, 0x50), named = Bytes(1000, 0xE5);
    std::wstring linkPath;
    Attributes attributes;
};

TEST_F(WipeSwapTest, FoldersThatBecomeLinksKeepWhatTheyLeadTo)
{
    for (const auto& [when, code, left] : {std::tuple{"before the call", 681L, 4U},
                                           {"in a file", 0L, 0U}, // held: it cannot be swapped
                                           {"before the next file", 0L, 0U},
                                           {"before the removal", 145L, 2U}}) {
        SCOPED_TRACE(when);
        folder = scratchFolder();
        prepare();
        const HeapStringW tree = heapAt(L"tree"), sub = heapAt(L"tree\\sub");
        stack = {{tree, L"", true, false},
                 {sub, L"", true, false},
                 {L"one", sub, false, false},
                 {L"two", sub, false, false}};
        // Links cannot be created here: a folder that replaces another is reported as a link to where it came
        // from.
        bool tried = false, swapped = false;
        const auto now = [&, when = std::string_view(when)](const char* moment) {
            if (!tried && (tried = when == moment) && (swapped = swap(L"tree\\sub", L"precious")))
                linkPath = at(L"tree\\sub");
        };
        Removals removals(before([&](LPCWSTR) { now("before the removal"); }));
        long opens = 0;
        files.setHook(before([&](auto... all) {
            if (std::get<5>(std::tuple(all...)) == kOpenToWipe && ++opens == 2)
                now("before the next file");
        }));
        onChunk = [&] { now("in a file"); };
        now("before the call");
        EXPECT_TRUE(wipe(kWipeDirectoryStack, at(L"tree")) == code && tried);
        EXPECT_EQ(swapped, code != 0);
        EXPECT_EQ(stack.size(), left);
        expectPrecious();
        EXPECT_EQ(isThere(at(L"tree")), code != 0) << "what is held can be removed in the end";
    }
}

TEST_F(WipeSwapTest, FilesThatBecomeOthersAreLeft)
{
    const std::wstring one = at(L"tree\\sub\\one");
    Settings setting;
    for (const bool canTakeBack : {false, true}) {
        // A link is followed by the open, or another file has taken the place.
        long takenBack = 0;
        setting.setHook([&](auto set, HANDLE file, auto what, LPVOID data, DWORD size) -> BOOL {
            if (static_cast<int>(what) != 21)
                return set(file, what, data, size);
            ++takenBack;
            EXPECT_EQ(*static_cast<DWORD*>(data), 8U);
            return SetLastError(ERROR_INVALID_PARAMETER), canTakeBack;
        });
        files.setHook([&](auto open, LPCWSTR name, DWORD access, DWORD share, auto* security,
                          DWORD disposition, DWORD flags, HANDLE model) {
            const bool isSwapped = flags == kOpenToWipe && swap(L"tree\\sub\\one", L"precious\\one");
            return open(name, access, share, security, disposition,
                        // the platform of the tests cannot take it back
                        isSwapped && canTakeBack ? FILE_ATTRIBUTE_NORMAL : flags, model);
        });
        EXPECT_TRUE(wipe(kWipeFile, one) == ERROR_FILE_INVALID && takenBack == 1);
        expectPrecious();
        EXPECT_TRUE(readBytes(at(L"aside")) == named && !isThere(one + L".kept"));
        EXPECT_TRUE(move(L"tree\\sub\\one", L"precious\\one") && move(L"aside", L"tree\\sub\\one"));
    }
    EXPECT_TRUE(takeBootList().empty());
    // What was opened cannot be identified.
    files.setHook(nullptr);
    setting.setHook(nullptr);
    Looks asking(2, FALSE, ERROR_NOT_READY);
    EXPECT_TRUE(wipe(kWipeFile, one) == ERROR_NOT_READY && readBytes(one) == named);
}

/// Its name belongs to another file when it is opened to be deleted, or already before.
TEST_F(WipeSwapTest, FillersThatBecomeOthersAreLeft)
{
    const FreeSpaceQueries space(isFull);
    files.setHook(before([&](auto...) {
        if (files.calls() == 2)
            swap(L"FreeSpaceFile.qmx", L"precious\\one");
    }));
    for (const long code : {ERROR_FILE_INVALID, ERROR_ALREADY_EXISTS}) {
        EXPECT_TRUE(wipe(kWipeFreeSpace, at(L"")) == code && readBytes(at(L"FreeSpaceFile.qmx")) == precious);
        files.setHook(nullptr);
    }
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(WipeSwapTest, RootsThatBecomeLinksAreNotFollowed)
{
    swapForLink(at(L"tree"), at(L"precious"));
    stack = {{L"one", heapAt(L"tree"), false, false}};
    EXPECT_TRUE(wipe(kWipeDirectoryStack, at(L"tree")) == 681 && stack.size() == 1U);
    expectPrecious();
}

TEST_F(WipeSwapTest, ACallbackChangesNeitherTheStackNorTheRun)
{
    const HeapStringW sub = heapAt(L"tree\\sub");
    stack = {{L"two", sub, false, true}, {L"one", sub, false, false}};
    long inner = 0;
    onChunk = [&] {
        stack = {{L"pushed", L"", false, true}};
        inner = wiper->Wipe(nullptr, nullptr, kWipeFile, L"C:\\none", nullptr, nullptr, 1, 1, nullptr);
    };
    EXPECT_TRUE(wipe(kWipeDirectoryStack, at(L"tree")) == ERROR_SUCCESS && inner == ERROR_BUSY);
    EXPECT_FALSE(isThere(at(L"tree\\sub\\one")));
    ASSERT_EQ(stack.size(), 1U);
    EXPECT_TRUE(stack.back().path == L"pushed" && readBytes(at(L"tree\\sub\\two")) == named);
}
