#include "support/Links.h"
#include "support/Wipe.h"

namespace {
constexpr long kStopped = 681; // ERROR_STOPPED_ON_SYMLINK
using Codes = decltype(Collector::codes);
const Bytes kPrecious{'p'};

/// A folder with a "root" to be walked and an "out" with the same content that links may lead to.
std::wstring makeRootAndOut()
{
    std::wstring folder = scratchFolder();
    for (const std::wstring& top : {folder + L"\\root", folder + L"\\out"}) {
        for (const wchar_t* name : {L"", L"\\a", L"\\a\\b", L"\\a\\b\\c", L"\\z", L"\\z\\y"})
            CreateDirectoryW((top + name).c_str(), nullptr);
        writeBytes(top + L"\\a\\b\\f", kPrecious);
    }
    writeBytes(folder + L"\\out\\a\\precious", {});
    writeBytes(folder + L"\\out\\a\\b\\precious", {});
    return folder;
}
} // namespace

// A text that meant one folder when it was given means another one later: two roots, two items.
TEST(WalkSafety, OneTextMayNameTwoRoots)
{
    const std::wstring scratch =
        scratchFolder({L"\\a", L"\\b", L"\\a\\root", L"\\b\\root", L"\\a\\root\\x", L"\\b\\root\\y"});
    Collector collector;
    const TestEngine engine(collector);
    SetCurrentDirectoryW((scratch + L"\\a").c_str());
    FSEngineAddPath(engine.handle, L"root", 0);
    void* handle = CreateFilePath(L"two", L"root", 0, 0);
    SetCurrentDirectoryW((scratch + L"\\b").c_str());
    FSEngineAddPath(engine.handle, L"root", 0);
    EXPECT_EQ(refusalOf(CreateFilePath(L"two", L"root", 0, 0)), ERROR_ALREADY_EXISTS);
    // Setting or loading the path resolves it again.
    const SharedPtr<ScanItem> item = itemOf(handle);
    const std::string stored = dumpOf(*item);
    for (const bool loads : {true, false}) {
        SetCurrentDirectoryW((scratch + L"\\b").c_str());
        MemoryInputByteStream stream(stored.data(), stored.size());
        loads ? static_cast<void>(item->load(kStateAll, stream)) : item->setPath(L"root\\y", 0);
        SetCurrentDirectoryW(scratch.c_str());
        EXPECT_NE(item->exists(), 0);
    }
    EXPECT_TRUE(engine.rescan() == ERROR_SUCCESS && collector.paths.count(L"root\\x") == 1U);
    EXPECT_EQ(collector.paths.count(L"root\\y"), 1U);
}

// A folder or one above it is replaced with a link, moved away or exchanged at each moment between its
// discovery and its turn: what is behind the link is neither reported nor touched.
TEST(WalkSafety, SwappedFoldersAreNotWalked)
{
    // The item whose report makes the swap, what is replaced, with a link, nothing or a file, and what could
    // not be listed.
    const std::tuple<std::wstring, std::wstring, char, std::wstring, long> rows[] = {
        {L"\\a", L"\\a", 'l', L"\\a", kStopped},       // before its turn
        {L"\\z\\y", L"\\a", 'l', L"\\a\\b", kStopped}, // above one that waits
        {L"\\z\\y", L"\\a\\b", 'l', L"\\a\\b", kStopped},
        {L"\\a\\b\\f", L"\\a\\b\\c", 'l', L"\\a\\b\\c", kStopped},
        {L"\\a", L"\\a", 'n', L"", 0},
        {L"\\z\\y", L"\\a", 'n', L"", 0},
        {L"\\a\\b\\c", L"\\a\\b\\c", 'n', L"", 0},
        {L"\\a", L"\\a", 'f', L"\\a", ERROR_DIRECTORY}};
    for (const bool relative : {false, true})
        for (const auto& row : rows) {
            const auto& [moment, swapped, by, failed, code] = row;
            SCOPED_TRACE(testing::PrintToString(row));
            const std::wstring scratch = makeRootAndOut();
            const std::wstring root = relative ? L"root" : scratch + L"\\root";
            Collector found;
            const TestEngine engine(found);
            FSEngineRegisterHandler(engine.handle, found, kListingFailed, 0, 0);
            SetCurrentDirectoryW(scratch.c_str());
            found.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
                EXPECT_FALSE(std::wstring_view(item->getPath()).ends_with(L"precious"));
                if (item->getPath() != root + std::get<0>(row))
                    return;
                const std::wstring folder = scratch + L"\\root" + std::get<1>(row);
                moveAway(folder, scratch + L"\\moved");
                if (std::get<char>(row) == 'l')
                    makeLink(scratch + L"\\out" + std::get<1>(row), folder);
                if (std::get<char>(row) == 'f')
                    writeBytes(folder, {});
            };
            EXPECT_EQ(engine.scan(root), code);
            EXPECT_EQ(found.codes, code != 0 ? Codes({{root + failed, DWORD(code)}}) : Codes());
        }
}

// What a walk found is deleted, emptied, read or created only where it was found. The item, one of its
// folders, or the root is swapped.
TEST(WalkSafety, SwappedItemsAreLeftAlone)
{
    for (const std::wstring name : {L"\\a\\b\\f", L"\\a\\b\\c"})
        for (const std::wstring swapped : {L"", L"\\a", L"\\a\\b", name.c_str()}) {
            SCOPED_TRACE(testing::PrintToString(name + swapped));
            const std::wstring scratch = makeRootAndOut();
            const std::wstring root = scratch + L"\\root", out = scratch + L"\\out";
            SharedPtr<ScanItem> found;
            Collector collector;
            collector.action = [&](auto&, auto& item) {
                found = item->getPath() == root + name ? item : found;
            };
            ASSERT_EQ(TestEngine(collector).scan(root), ERROR_SUCCESS);
            auto& item = dynamic_cast<IFileSystemItem&>(*found);
            auto* const file = dynamic_cast<IFile*>(found.get());
            const bool isLink = file != nullptr && swapped == name; // a link to a folder where a file was
            swapForLink(root + swapped, out + (isLink ? L"\\a\\b\\c" : swapped));
            unsigned long long size = 0;
            EXPECT_EQ(codeOf([&] { item.create(); }),
                      file == nullptr && swapped == name ? ERROR_ALREADY_EXISTS : kStopped);
            EXPECT_TRUE(file == nullptr || codeOf([&] { file->getData(size); }) == kStopped);
            EXPECT_EQ(codeOf([&] { item.deleteItem(); }), isLink ? ERROR_ACCESS_DENIED : kStopped);
            EXPECT_TRUE(readBytes(out + L"\\a\\b\\f") == kPrecious && stands(out + L"\\a\\b\\c"));
        }
}

// Below some systems a name may hold a backslash, and would be read as the path of another file.
TEST(WalkSafety, ANameThatReadsAsAPathIsNoItem)
{
    const std::wstring root = scratchFolder({L"\\a"});
    constexpr long long kCreate = 85, kClose = 3;
    for (const char* name : {"a/f", "a\\f"}) {
        const std::string path = unixPath(root + L"\\") + name;
        unixCall(kClose, unixArgument(unixCall(kCreate, path.c_str(), unixArgument(0600))));
    }
    Collector collector;
    EXPECT_EQ(TestEngine(collector).scan(root), ERROR_INVALID_NAME);
    EXPECT_EQ(collector.calls, 2) << "the folder and the file in it";
}

// The system itself keeps the listed folder and those above it in place.
TEST(WalkSafety, ListedFoldersCannotBeMoved)
{
    const std::wstring root = scratchFolder({L"\\a", L"\\a\\b", L"\\c"});
    writeBytes(root + L"\\a\\b\\f", {});
    const auto move = [&](const std::wstring& from, const wchar_t* to) {
        return MoveFileW((root + from).c_str(), (root + to).c_str()) != 0;
    };
    Collector collector;
    const TestEngine engine(collector);
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
        if (item->getType() != kFileItem)
            return;
        for (const wchar_t* held : {L"", L"\\a", L"\\a\\b"})
            EXPECT_FALSE(move(held, L"-moved"));
        EXPECT_TRUE(move(L"\\c", L"\\d")) << "no other folder";
        EXPECT_EQ(codeOf([&] { dynamic_cast<IFile&>(*item).deleteItem(); }), 0U) << "what is in it may go";
    };
    EXPECT_TRUE(engine.scan(root) == ERROR_SUCCESS && collector.calls == 4);
    EXPECT_TRUE(move(L"\\a", L"\\moved"));

    // The cost: one more open for each folder, none for a file.
    collector.action = nullptr;
    for (int file = 0; file < 100; ++file)
        writeBytes(root + L"\\d\\" + std::to_wstring(file), {});
    const Opens opens;
    const Attributes looks;
    EXPECT_EQ(engine.scan(root), ERROR_SUCCESS);
    EXPECT_EQ(opens.calls(), 4) << "the root, moved, moved\\b and d";
    EXPECT_EQ(looks.calls(), 4);
}

// Folders and files that would be fetched are reported, but not listed, opened or read.
TEST(WalkSafety, NothingIsFetched)
{
    const std::wstring root = scratchFolder({L"\\cloud"});
    writeBytes(root + L"\\cloud\\far", {1});
    writeBytes(root + L"\\file", {1});
    for (const DWORD attribute : {0x00040000, 0x00400000}) { // to be fetched when opened, when read
        Collector collector;
        const TestEngine engine(collector);
        AskedHandle asked(changingEntries([&](auto& entry) { entry.FileAttributes |= attribute; }));
        Attributes looks([&](auto original, LPCWSTR path) {
            const bool isFar = std::wstring(path).find(L"\\file") != std::wstring::npos;
            return original(path) | (isFar ? attribute : 0);
        });
        const Replaced<"ReadFile", decltype(&ReadFile)> reads;
        const Opens opens;
        EXPECT_EQ(engine.scan(root), ERROR_SUCCESS);
        EXPECT_EQ(collector.calls, 2) << "the folder and the file";
        EXPECT_EQ(opens.calls(), 1) << "the root alone";
        const FilePtr file = fileAt(root + L"\\file");
        unsigned long long size = 0;
        EXPECT_EQ(codeOf([&] { file->getData(size); }), ERROR_FILE_OFFLINE);
        EXPECT_TRUE(opens.calls() + reads.calls() == 1 && engine.scan(root + L"\\cloud") == ERROR_SUCCESS);
        EXPECT_EQ(collector.calls, 3) << "a root that the caller names is listed";
    }
}

// A failed listing is reported with its path and code only to those who asked for such reports.
TEST(WalkSafety, FailedListingsAreToldOf)
{
    const std::wstring tree = testFolder() + L"\\tree";
    Collector found;
    const TestEngine engine(found);
    FSEngineRegisterHandler(engine.handle, found, kListingFailed, 0, 0);
    AskedHandle asked;
    // The root, what cannot be listed in it, and how much is found nevertheless.
    const std::tuple<std::wstring, std::wstring, std::uint32_t, long> rows[] = {
        {L"", L"\\denied", 5, 25}, {L"\\denied", L"\\denied", 5, 0}, {L"\\missing", L"\\missing", 3, 0},
        {L"\\empty", L"", 0, 0},   {L"\\dots", L"", 0, 3},           {L"\\dots", L"\\dots", 30, 3}};
    for (const auto& [root, failed, code, calls] : rows) {
        found.calls = 0;
        found.codes.clear();
        asked.failCall(code == ERROR_READ_FAULT ? 2 : 0, FALSE, code);
        EXPECT_EQ(engine.scan(tree + root, 65535, nullptr, L"", L"many:010"), static_cast<long>(code));
        EXPECT_EQ(found.codes, code != 0 ? Codes({{tree + failed, code}}) : Codes());
        EXPECT_EQ(found.calls, calls) << testing::PrintToString(root);
    }
}
