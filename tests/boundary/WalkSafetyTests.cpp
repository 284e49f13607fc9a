#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>

#include "core/win32/registry/api.h"
#include "support/ImportReplacement.h"
#include "support/Links.h"
#include "support/Scan.h"

namespace {
constexpr DWORD kRecallOnOpen = 0x00040000;
constexpr DWORD kRecallOnDataAccess = 0x00400000;
constexpr long kStopped = 681; // ERROR_STOPPED_ON_SYMLINK

void write(const std::wstring& path, const std::string& text)
{
    std::ofstream((L"\\\\?\\" + path).c_str(), std::ios::binary) << text;
}

std::string read(const std::wstring& path)
{
    std::ifstream file((L"\\\\?\\" + path).c_str(), std::ios::binary);
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "missing";
}

bool stands(const std::wstring& path)
{
    return GetFileAttributesW((L"\\\\?\\" + path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

void makeFolders(const std::wstring& root, std::initializer_list<const wchar_t*> names)
{
    for (const wchar_t* name : names)
        CreateDirectoryW((root + name).c_str(), nullptr);
}

/// Goes back to the folder that was the current one.
struct CurrentFolder
{
    explicit CurrentFolder(const std::wstring& folder)
    {
        GetCurrentDirectoryW(MAX_PATH, before);
        SetCurrentDirectoryW(folder.c_str());
    }
    ~CurrentFolder() { SetCurrentDirectoryW(before); }
    wchar_t before[MAX_PATH];
};

IFileSystemItem& fileSystemItem(const SharedPtr<ScanItem>& item)
{
    return *dynamic_cast<IFileSystemItem*>(item.get());
}

/// An engine that collects what is found and, apart, what could not be listed.
struct FailureEngine
{
    explicit FailureEngine(const wchar_t* name = L"failures") : engine(found, name)
    {
        failed.action = [this](const Notification& notification, const SharedPtr<ScanItem>& item) {
            codes[item->getPath()] = notification.getValue();
        };
        FSEngineRegisterHandler(engine.handle, failed, kListingFailed, 0, 0);
    }
    Collector found;
    Collector failed;
    std::map<std::wstring, std::uint32_t> codes;
    TestEngine engine;
};
} // namespace

// Every form of a root means the folder that it meant when it was given, and every name below it itself.
TEST(WalkSafety, EachFormOfARootNamesWhatItNamed)
{
    const std::wstring scratch = scratchFolder();
    const std::wstring tree = scratch + L"\\here\\dots";
    const std::wstring twin = scratch + L"\\there\\dots";
    makeFolders(scratch, {L"\\here", L"\\here\\dots", L"\\there", L"\\there\\dots"});
    std::wstring slashes = tree;
    std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
    const struct
    {
        std::wstring current; // when the path is given
        std::wstring root;
    } rows[] = {
        {L"here", L"dots"},
        {L"here", L".\\dots\\"},
        {L"here\\dots", L"."},
        {L"here\\dots", tree.substr(0, 2)},
        {L"here", tree.substr(0, 2) + L"dots"},
        {L"here", tree.substr(2)},
        {L"there", L"../here/dots"},
        {L"there", slashes},
        {L"there", L"\\\\.\\" + tree},
        {L"there", L"//?/" + slashes},
        {L"there", L"//./" + slashes + L"/"},
        {L"there", L"\\\\?\\" + tree},
        {L"there", L"\\??\\" + tree},
        {L"there", tree},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.root));
        for (const std::wstring& folder : {tree, twin})
            for (const wchar_t* name : {L"\\report", L"\\report.", L"\\nul"})
                write(folder + name, "precious");
        const auto othersStand = [&] {
            for (const std::wstring& file : {tree + L"\\report", twin + L"\\report", twin + L"\\report."})
                EXPECT_EQ(read(file), "precious");
        };
        const CurrentFolder current(scratch + L"\\" + row.current);
        const bool joined = row.root.back() == L'\\' || row.root.back() == L'/' || row.root.back() == L':';
        const std::wstring name = row.root + (joined ? L"report." : L"\\report.");
        const std::unique_ptr<IFile> file(DllGetFile(name.c_str(), 0));
        Collector collector;
        const TestEngine engine(collector);
        FSEngineAddPath(engine.handle, row.root.c_str(), 0);
        collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
            SetCurrentDirectoryW((scratch + L"\\there\\dots").c_str());
            if (std::wstring(item->getPath()).back() == L'.') {
                EXPECT_EQ(item->getPath(), name) << "the text is the caller's";
                EXPECT_NE(item->exists(), 0);
                EXPECT_EQ(codeOf([&] { fileSystemItem(item).deleteItem(); }), 0U);
            }
        };
        EXPECT_EQ(engine.rescan(), ERROR_SUCCESS);
        EXPECT_EQ(collector.calls, 3);
        EXPECT_EQ(read(tree + L"\\report."), "missing");
        othersStand();
        // The same by name, from a current folder where the text would mean the twin.
        SetCurrentDirectoryW((scratch + L"\\there").c_str());
        EXPECT_EQ(file->exists(), 0);
        file->setData("new", 3);
        EXPECT_EQ(codeOf([&] { file->create(); }), 0U);
        EXPECT_EQ(read(tree + L"\\report."), "new");
        EXPECT_EQ(file->getSize(), 3U);
        EXPECT_EQ(codeOf([&] { file->deleteItem(); }), 0U);
        EXPECT_EQ(read(tree + L"\\report."), "missing");
        othersStand();
    }
}

// A text that meant one folder when it was given means another one later: two roots, two items.
TEST(WalkSafety, OneTextMayNameTwoRoots)
{
    const std::wstring scratch = scratchFolder();
    makeFolders(scratch, {L"\\a", L"\\b", L"\\a\\root", L"\\b\\root", L"\\a\\root\\x", L"\\b\\root\\y"});
    Collector collector;
    const TestEngine engine(collector);
    {
        const CurrentFolder current(scratch + L"\\a");
        FSEngineAddPath(engine.handle, L"root", 0);
        void* handle = CreateFilePath(L"two", L"root", 0, 0);
        SetCurrentDirectoryW((scratch + L"\\b").c_str());
        FSEngineAddPath(engine.handle, L"root", 0);
        EXPECT_EQ(CreateFilePath(L"two", L"root", 0, 0), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
        // Set and loaded anew it is settled anew.
        SharedPtr<ScanItem> item;
        GetScanItemByHandle(handle, item);
        MemoryOutputByteStream stored;
        item->dump(kStateAll, stored);
        for (const bool loads : {true, false}) {
            SetCurrentDirectoryW((scratch + L"\\b").c_str());
            MemoryInputByteStream stream(stored.getData(), stored.getSize());
            loads ? static_cast<void>(item->load(kStateAll, stream)) : item->setPath(L"root\\y", 0);
            SetCurrentDirectoryW(scratch.c_str());
            EXPECT_NE(item->exists(), 0);
        }
        CloseScanItem(handle);
    }
    EXPECT_EQ(engine.rescan(), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths.count(L"root\\x"), 1U);
    EXPECT_EQ(collector.paths.count(L"root\\y"), 1U);
}

// A folder or one above it is swapped for a link, moved away or replaced at each moment between its being
// found and its turn: what is behind the link is neither reported nor touched.
TEST(WalkSafety, SwappedFoldersAreNotWalked)
{
    const struct
    {
        const wchar_t* moment; // the item whose report swaps
        const wchar_t* swapped;
        wchar_t by; // a link, nothing, a file
        long code;
        const wchar_t* failed;
    } rows[] = {
        {L"\\a", L"\\a", L'l', kStopped, L"\\a"},       // before its turn
        {L"\\z\\y", L"\\a", L'l', kStopped, L"\\a\\b"}, // above one that waits
        {L"\\z\\y", L"\\a\\b", L'l', kStopped, L"\\a\\b"},
        {L"\\a\\b\\f", L"\\a\\b\\c", L'l', kStopped, L"\\a\\b\\c"},
        {L"\\a", L"\\a", L'n', 0, L""},
        {L"\\z\\y", L"\\a", L'n', 0, L""},
        {L"\\a\\b\\c", L"\\a\\b\\c", L'n', 0, L""},
        {L"\\a", L"\\a", L'f', ERROR_DIRECTORY, L"\\a"},
    };
    for (const bool relative : {false, true})
        for (const auto& row : rows) {
            SCOPED_TRACE(::testing::PrintToString(std::wstring(row.moment) + row.swapped + row.by));
            const std::wstring scratch = scratchFolder();
            const std::wstring root = relative ? L"root" : scratch + L"\\root";
            const std::wstring real = scratch + L"\\root";
            makeFolders(scratch, {L"\\root", L"\\root\\a", L"\\root\\a\\b", L"\\root\\a\\b\\c", L"\\root\\z",
                                  L"\\root\\z\\y", L"\\out", L"\\out\\b", L"\\out\\b\\c", L"\\out\\c"});
            for (const wchar_t* file : {L"\\root\\a\\b\\f", L"\\out\\precious", L"\\out\\b\\precious",
                                        L"\\out\\b\\c\\precious", L"\\out\\c\\precious"})
                write(scratch + file, "precious");
            FailureEngine scan;
            const CurrentFolder current(scratch);
            scan.found.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
                EXPECT_EQ(std::wstring(item->getPath()).find(L"precious"), std::wstring::npos);
                if (item->getPath() != root + row.moment)
                    return;
                moveAway(real + row.swapped, scratch + L"\\moved");
                if (row.by == L'l')
                    makeLink(scratch + (std::wstring(row.swapped) == L"\\a" ? L"\\out" : L"\\out\\b"),
                             real + row.swapped);
                if (row.by == L'f')
                    write(real + row.swapped, "");
            };
            EXPECT_EQ(scan.engine.scan(root), row.code);
            std::map<std::wstring, std::uint32_t> expected;
            if (row.code != 0)
                expected[root + row.failed] = static_cast<std::uint32_t>(row.code);
            EXPECT_EQ(scan.codes, expected);
        }
}

// What a walk found is deleted, emptied, read or made only where it was found: moments and operations.
TEST(WalkSafety, SwappedItemsAreLeftAlone)
{
    const std::function<void(const SharedPtr<ScanItem>&)> operations[] = {
        [](const SharedPtr<ScanItem>& item) { fileSystemItem(item).deleteItem(); },
        [](const SharedPtr<ScanItem>& item) { fileSystemItem(item).create(); },
        [](const SharedPtr<ScanItem>& item) {
            unsigned long long size = 0;
            dynamic_cast<IFile&>(*item).getData(size);
        },
    };
    const struct
    {
        const wchar_t* item;
        const wchar_t* swapped; // the item itself, the folder that it is in, one above
        std::size_t operation;
        long code;
    } rows[] = {
        {L"\\a\\b\\f", L"\\a\\b", 0, kStopped},
        {L"\\a\\b\\f", L"\\a", 0, kStopped},
        {L"\\a\\b\\f", L"\\a\\b", 1, kStopped},
        {L"\\a\\b\\f", L"\\a", 1, kStopped},
        {L"\\a\\b\\f", L"\\a\\b", 2, kStopped},
        {L"\\a\\b\\f", L"\\a", 2, kStopped},
        {L"\\a\\b\\e", L"\\a\\b", 0, kStopped},
        {L"\\a\\b\\e", L"\\a", 0, kStopped},
        {L"\\a\\b\\e", L"\\a", 1, kStopped},
        {L"\\a\\b\\e", L"\\a\\b\\e", 0, kStopped},
        {L"\\a\\b\\f", L"\\a\\b\\f", 0, ERROR_ACCESS_DENIED}, // a link to a folder where a file was
        {L"\\a\\b\\f", L"\\a\\b\\f", 1, kStopped},
        {L"\\a\\b\\f", L"\\a\\b\\f", 2, kStopped},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.item) + ::testing::PrintToString(row.swapped) +
                     std::to_string(row.operation));
        const std::wstring root = scratchFolder();
        const std::wstring out = scratchFolder();
        makeFolders(root, {L"\\a", L"\\a\\b", L"\\a\\b\\e"});
        makeFolders(out, {L"\\b", L"\\b\\e", L"\\e"});
        write(root + L"\\a\\b\\f", "found");
        for (const wchar_t* file : {L"\\f", L"\\b\\f"})
            write(out + file, "precious");
        SharedPtr<ScanItem> found;
        Collector collector;
        collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
            if (item->getPath() == root + row.item)
                found = item;
        };
        ASSERT_EQ(TestEngine(collector).scan(root), ERROR_SUCCESS);
        const std::wstring swapped = row.swapped;
        swapForLink(root + swapped, swapped == L"\\a"      ? out
                                    : swapped == L"\\a\\b" ? out + L"\\b"
                                                           : out + L"\\e");
        EXPECT_EQ(codeOf([&] { operations[row.operation](found); }), static_cast<unsigned long>(row.code));
        for (const wchar_t* file : {L"\\f", L"\\b\\f"})
            EXPECT_EQ(read(out + file), "precious");
        for (const wchar_t* folder : {L"\\b\\e", L"\\e"})
            EXPECT_TRUE(stands(out + folder));
    }
}

// The system itself keeps the folder that is listed, and those above it, where they are.
TEST(WalkSafety, ListedFoldersCannotBeMoved)
{
    const std::wstring root = scratchFolder();
    makeFolders(root, {L"\\a", L"\\a\\b", L"\\c"});
    write(root + L"\\a\\b\\f", "");
    Collector collector;
    const TestEngine engine(collector);
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
        if (item->getType() != kFileItem)
            return;
        for (const wchar_t* held : {L"", L"\\a", L"\\a\\b"})
            EXPECT_EQ(MoveFileW((root + held).c_str(), (root + held + L"-moved").c_str()), 0);
        EXPECT_NE(MoveFileW((root + L"\\c").c_str(), (root + L"\\d").c_str()), 0) << "no other folder";
        EXPECT_EQ(codeOf([&] { fileSystemItem(item).deleteItem(); }), 0U) << "what is in it may go";
    };
    EXPECT_EQ(engine.scan(root), ERROR_SUCCESS);
    EXPECT_EQ(collector.calls, 4);
    EXPECT_NE(MoveFileW((root + L"\\a").c_str(), (root + L"\\moved").c_str()), 0);

    collector.action = nullptr;
    // What it costs: one more opening for each folder, none for a file.
    for (int file = 0; file < 100; ++file)
        write(root + L"\\d\\" + std::to_wstring(file), "");
    using Create = HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
    CountedImport<"CreateFileW", Create> opens(sysmaintModule());
    CountedImport<"GetFileAttributesW", decltype(&GetFileAttributesW)> looks(sysmaintModule());
    EXPECT_EQ(engine.scan(root), ERROR_SUCCESS);
    EXPECT_EQ(opens.calls(), 4) << "the root, moved, moved\\b and d";
    EXPECT_EQ(looks.calls(), 4);
}

// Folders and files that would be fetched are told of, and neither listed nor opened nor read.
TEST(WalkSafety, NothingIsFetched)
{
    const std::wstring root = scratchFolder();
    makeFolders(root, {L"\\cloud"});
    write(root + L"\\cloud\\far", "far");
    write(root + L"\\file", "far");
    for (const DWORD attribute : {kRecallOnOpen, kRecallOnDataAccess}) {
        Collector collector;
        const TestEngine engine(collector);
        CountedImport<"FindNextFileW", decltype(&FindNextFileW)> next(sysmaintModule());
        CountedImport<"GetFileAttributesW", decltype(&GetFileAttributesW)> looks(sysmaintModule());
        next.setHook([&](auto original, HANDLE search, WIN32_FIND_DATAW* entry) {
            const BOOL found = original(search, entry);
            entry->dwFileAttributes |= attribute;
            return found;
        });
        looks.setHook([&](auto original, LPCWSTR path) {
            const DWORD attributes = original(path);
            return std::wstring(path).find(L"\\file") != std::wstring::npos ? attributes | attribute
                                                                            : attributes;
        });
        CountedImport<"ReadFile", decltype(&ReadFile)> reads(sysmaintModule());
        using Create = HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
        CountedImport<"CreateFileW", Create> opens(sysmaintModule());
        EXPECT_EQ(engine.scan(root), ERROR_SUCCESS);
        EXPECT_EQ(collector.calls, 2) << "the folder and the file";
        EXPECT_EQ(opens.calls(), 1) << "the root alone";
        const std::unique_ptr<IFile> file(DllGetFile((root + L"\\file").c_str(), 0));
        unsigned long long size = 0;
        EXPECT_EQ(codeOf([&] { file->getData(size); }), static_cast<unsigned long>(ERROR_FILE_OFFLINE));
        EXPECT_EQ(opens.calls() + reads.calls(), 1);
        EXPECT_EQ(engine.scan(root + L"\\cloud"), ERROR_SUCCESS);
        EXPECT_EQ(collector.calls, 3) << "a root that the caller names is listed";
    }
}

// A listing that cannot be had comes to whoever asks for such news, with its path and code, and only to them.
TEST(WalkSafety, FailedListingsAreToldOf)
{
    const std::wstring tree = testFolder() + L"\\tree";
    FailureEngine scan;
    const auto codes = [&](long result, const std::wstring& root) {
        scan.codes.clear();
        EXPECT_EQ(scan.engine.scan(root, 65535, nullptr, L"", L"many:010"), result);
        return scan.codes;
    };
    using Codes = std::map<std::wstring, std::uint32_t>;
    EXPECT_EQ(codes(ERROR_ACCESS_DENIED, tree), (Codes{{tree + L"\\denied", ERROR_ACCESS_DENIED}}));
    EXPECT_EQ(codes(ERROR_PATH_NOT_FOUND, tree + L"\\missing"),
              (Codes{{tree + L"\\missing", ERROR_PATH_NOT_FOUND}}));
    EXPECT_EQ(codes(ERROR_SUCCESS, tree + L"\\dots"), Codes());
    CountedImport<"FindNextFileW", decltype(&FindNextFileW)> next(sysmaintModule());
    next.failCall(3, FALSE, ERROR_READ_FAULT);
    EXPECT_EQ(codes(ERROR_READ_FAULT, tree + L"\\dots"), (Codes{{tree + L"\\dots", ERROR_READ_FAULT}}));

    Collector found;
    Codes failed;
    Collector failures;
    failures.action = [&](const Notification& notification, const SharedPtr<ScanItem>& item) {
        failed[item->getPath()] = notification.getValue();
    };
    void* engine = CreateRegistryScanEngine(L"failures");
    for (const unsigned long key : {kLeafFound, kContainerFound})
        RSEngineRegisterHandler(engine, found, key, 0, 0);
    RSEngineRegisterHandler(engine, failures, kListingFailed, 0, 0);
    RSEngineAddPath(engine, HKEY_CURRENT_USER, L"No such key");
    EXPECT_EQ(RSEngineScan(engine, nullptr, everything(), {}), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(failed, (Codes{{L"HKEY_CURRENT_USER\\No such key", ERROR_FILE_NOT_FOUND}}));
    CloseRegistryScanEngine(engine);
}
