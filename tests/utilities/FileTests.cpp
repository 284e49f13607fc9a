#include "support/Utilities.h"
#include "support/Wipe.h"

#include <sddl.h>

namespace {
/// A folder that is deleted with the test, and a file in it.
struct Files : testing::Test
{
    Files()
    {
        FolderDeleteTree(root.c_str(), nullptr);
        EXPECT_EQ(FolderCreateTree(root.c_str()), 0);
    }
    ~Files() override { FolderDeleteTree(root.c_str(), nullptr); }
    [[nodiscard]] std::wstring at(const std::wstring& name) const { return root + L"\\" + name; }
    const std::wstring root = testPath(L"scratch"), file = at(L"a");
};
using Folders = Files;

long write(const std::wstring& path, const std::string& bytes)
{
    return FileWriteAtomically(path.c_str(), bytes.data(), bytes.size());
}
std::string content(const std::wstring& path, unsigned long long limit = 1000)
{
    Given<unsigned char> bytes;
    size_t size = 0;
    const long code = FileReadAll(path.c_str(), limit, &bytes, &size);
    return code != 0 ? "code " + std::to_string(code)
                     : std::string(reinterpret_cast<char*>(bytes.get()), size);
}
std::string rights(const std::wstring& path)
{
    std::string list(1024, '\0');
    DWORD size = 0;
    EXPECT_TRUE(GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, list.data(), 1024, &size));
    return list;
}
/// The bytes, files and folders of a tree in one number, or minus the code.
long long sizes(const std::wstring& tree, HANDLE cancel = nullptr)
{
    unsigned long long bytes = 0, files = 0, folders = 0;
    const long code = FolderGetSize(tree.c_str(), cancel, &bytes, &files, &folders);
    return code != 0 ? -code : static_cast<long long>(bytes * 10000 + files * 100 + folders);
}
const auto attributes = [](const std::wstring& path) { return GetFileAttributesW(path.c_str()); };
} // namespace

TEST_F(Files, ReadAndWrite)
{
    EXPECT_EQ(write(file, "first"), 0);
    EXPECT_EQ(write(file, "second"), 0);
    EXPECT_EQ((std::vector{content(file), content(file, 6), content(file, 5), content(at(L"b"))}),
              (std::vector<std::string>{"second", "second", "code 223", "code 2"}));
    EXPECT_EQ(write(at(L"no\\a"), "x"), 3);
    // Whatever fails, the old content stays whole and nothing is left beside it.
    const auto failing = [&](auto&& import, auto result) {
        import.failCall(1, result, ERROR_DISK_FULL);
        EXPECT_EQ(write(file, "third"), 112);
        EXPECT_EQ(content(file), "second");
        EXPECT_EQ(entriesOf(root), L"a ");
    };
    failing(Writes(), FALSE);
    failing(Flushes(), FALSE);
    failing(Replaced<"MoveFileExW", decltype(&MoveFileExW)>(), FALSE);
    failing(Opens(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(write(at(std::wstring(240, L'x')), "x"), 0);
}

TEST_F(Files, AreReplacedInPlaceAndKeepWhatOthersMayDo)
{
    EXPECT_EQ(write(file, "second"), 0);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
    PSECURITY_DESCRIPTOR open = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;FA;;;WD)", 1, &open, nullptr);
    EXPECT_TRUE(SetFileSecurityW(file.c_str(), DACL_SECURITY_INFORMATION, open));
    LocalFree(open);
    const std::string before = rights(file);
    // Whoever looks meanwhile finds the file.
    std::atomic<bool> isDone = false;
    onThreadsAtOnce(2, [&](int thread) {
        for (int i = 0; thread == 0 && i < 200; ++i)
            EXPECT_EQ(write(file, "second"), 0);
        isDone = isDone || thread == 0;
        while (!isDone)
            EXPECT_NE(attributes(file), INVALID_FILE_ATTRIBUTES);
    });
    EXPECT_EQ(attributes(file) & 7U, 6U);
    EXPECT_TRUE(rights(file) == before);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(write(file, "third"), 6009);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_EQ(content(file), "second");
    EXPECT_EQ(entriesOf(root), L"a ");
}

TEST_F(Files, TellSizesTimesAndIdentity)
{
    EXPECT_EQ(write(file, "second"), 0);
    unsigned long long size = 0, allocated = 0, times[3] = {}, id = 0, other = 0;
    unsigned long serial = 0, links = 0;
    EXPECT_EQ(FileGetSizes(file.c_str(), &size, &allocated), 0);
    EXPECT_EQ(size, 6U);
    EXPECT_GE(allocated, size);
    const unsigned long long moment = 132000000000000000, none = 0, never = ~0ULL;
    EXPECT_EQ(FileSetTimes(file.c_str(), nullptr, nullptr, &moment), 0);
    for (const unsigned long long* wrong : {&none, &never})
        EXPECT_EQ(FileSetTimes(file.c_str(), nullptr, nullptr, wrong), 87);
    EXPECT_EQ(FileGetTimes(file.c_str(), &times[0], &times[1], &times[2]), 0);
    EXPECT_EQ(times[2], moment);
    EXPECT_EQ(FileGetIdentity(file.c_str(), &serial, &id, &links), 0);
    EXPECT_EQ(FileGetIdentity(at(L".\\a").c_str(), &serial, &other, &links), 0);
    EXPECT_EQ(id, other);
    EXPECT_EQ(links, 1U);
}

TEST_F(Files, Delete)
{
    unsigned long old = 0;
    int flag = 7;
    EXPECT_EQ(write(file, "x"), 0);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(FileClearReadOnly(file.c_str(), &old), 0);
    EXPECT_EQ(old & 1U, 1U);
    EXPECT_EQ(attributes(file) & 1U, 0U);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(FileDeleteForced(file.c_str(), &flag), 0);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(FileDeleteForced(file.c_str(), &flag), 2);
    EXPECT_EQ(FileDeleteForced(root.c_str(), &flag), 336);
    EXPECT_EQ(write(file, "x"), 0);
    EXPECT_EQ(asNumber(FileIsInUse)(file.c_str()), 0);
    Win32Handle held = openedFile(file, GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(asNumber(FileIsInUse)(file.c_str()), 1);
    // One that is held waits for the restart, or keeps its attributes where it cannot.
    takeBootList();
    EXPECT_EQ(FileDeleteForced(file.c_str(), &flag), 0);
    EXPECT_EQ(flag, 1);
    EXPECT_NE(takeBootList().find(file), std::wstring::npos);
    CreateDirectoryW(bootListPath().c_str(), nullptr);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(FileDeleteForced(file.c_str(), &flag), 32);
    EXPECT_EQ(attributes(file) & 1U, 1U);
    RemoveDirectoryW(bootListPath().c_str());
    held.reset();
    Given<unsigned long> ids;
    size_t count = 7;
    EXPECT_EQ(FileGetLockers(file.c_str(), &ids, &count), 0);
    EXPECT_EQ(FileGetLockers(at(L"b").c_str(), &ids, &count), 2);
    for (const wchar_t* refused : {L"C:\\windows", L"\\\\server\\share\\a", L"C:\\windows\\*"})
        EXPECT_EQ(FileMoveToRecycleBin(refused), 50) << utf8(refused);
    EXPECT_EQ(FileMoveToRecycleBin(at(L"b").c_str()), 2);
    EXPECT_EQ(FileMoveToRecycleBin(at(std::wstring(250, L'x')).c_str()), 206);
    EXPECT_EQ(FileMoveToRecycleBin(file.c_str()), 0);
    const std::wstring binned = at(L"binned");
    for (const wchar_t* end : {L"\\", L"/"}) {
        std::filesystem::create_directories(binned + L"\\sub");
        EXPECT_EQ(FileMoveToRecycleBin((binned + end).c_str()), 0);
        EXPECT_EQ(attributes(binned), INVALID_FILE_ATTRIBUTES);
    }
    EXPECT_EQ(attributes(file), INVALID_FILE_ATTRIBUTES);
}

TEST_F(Folders, TreesAndLinks)
{
    std::wstring deep = at(L"tree");
    for (int i = 0; i < 20; ++i)
        deep += L"\\" + std::wstring(40, static_cast<wchar_t>(L'a' + i));
    EXPECT_EQ(FolderCreateTree((deep + L"\\").c_str()), 0);
    EXPECT_EQ(FolderCreateTree(deep.c_str()), 0);
    const std::wstring tree = at(L"tree");
    EXPECT_EQ(write(tree + L"\\report.", "12345"), 0); // a name that Win32 would take for another
    EXPECT_EQ(write(deep + L"\\locked", "123"), 0);
    EXPECT_EQ(FolderCreateTree((tree + L"\\report.\\x").c_str()), 267);
    EXPECT_EQ(FolderCreateTree(L"Q:\\x"), 3);
    EXPECT_EQ(sizes(tree), 80220);
    EXPECT_EQ(sizes(tree + L"\\report."), -267);
    EXPECT_EQ(asNumber(FolderIsEmpty)(tree.c_str()), 0);
    const TestEvent cancel(true);
    for (const auto& [event, code] : {std::pair(cancel.get(), 1223), {kNoHandle, 6}}) {
        EXPECT_EQ(FolderDeleteTree(tree.c_str(), event), code);
        EXPECT_EQ(sizes(tree, event), -code);
    }
    EXPECT_EQ(write(tree, "x"), 336) << "a folder is no file to replace";
    // A link that appears between the listing and the deletion is not followed: the platform tells of one
    // here.
    EXPECT_EQ(FolderCreateTree(at(L"outside").c_str()), 0);
    EXPECT_EQ(write(at(L"outside\\keep"), "x"), 0);
    {
        Attributes look([&](auto original, const wchar_t* path) {
            const bool isIt = std::wstring_view(path).ends_with(L"outside");
            return original(path) | (isIt ? FILE_ATTRIBUTE_REPARSE_POINT : 0);
        });
        EXPECT_EQ(FolderDeleteTree(at(L"outside").c_str(), nullptr), 681);
        EXPECT_EQ(sizes(at(L"outside")), -681);
    }
    EXPECT_EQ(content(at(L"outside\\keep")), "x");
    // What cannot be deleted stays; the rest is deleted.
    Win32Handle held = openedFile(L"\\\\?\\" + deep + L"\\locked", GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(FolderDeleteTree(tree.c_str(), nullptr), 32);
    EXPECT_EQ(sizes(tree), 30120);
    held.reset();
    SetFileAttributesW((L"\\\\?\\" + deep + L"\\locked").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(FolderDeleteTree((tree + L"\\").c_str(), nullptr), 0);
    EXPECT_EQ(entriesOf(root), L"outside ");
}

TEST_F(Folders, AreDeletedByTwoAtOnceAndNotWhereTheyAreNeeded)
{
    for (int i = 0; i < 60; ++i) {
        const std::wstring name = std::to_wstring(i % 8) + L"\\" + std::to_wstring(i);
        EXPECT_EQ(FolderCreateTree((at(L"both\\") + name).c_str()), 0);
    }
    onThreadsAtOnce(2, [&](int) { EXPECT_EQ(FolderDeleteTree(at(L"both").c_str(), nullptr), 0); });
    for (const wchar_t* kept : {L"C:\\", L"C:\\windows", L"C:\\users", L"C:\\Users::$INDEX_ALLOCATION",
                                L"\\\\localhost\\C$\\users\\x\\AppData", L"c:/Program Files/."})
        EXPECT_EQ(FolderDeleteTree(kept, nullptr), 50) << utf8(kept);
    EXPECT_EQ(write(at(L"keep"), "x"), 0);
    EXPECT_EQ(FolderDeleteTree(at(L"keep").c_str(), nullptr), 267);
    EXPECT_EQ(FolderDeleteTree(at(L"none").c_str(), nullptr), 2);
}

TEST(Volumes, TellOfDrives)
{
    Given<VolumeRecord> volumes;
    size_t count = 0;
    EXPECT_EQ(VolumeEnumerate(&volumes, &count), 0);
    std::wstring roots;
    for (size_t i = 0; i < count; ++i)
        roots += volumes[i].root;
    EXPECT_NE(roots.find(L"C:\\"), std::wstring::npos);
    EXPECT_NE(roots.find(L"Z:\\"), std::wstring::npos);
    DWORD sectors = 0, bytes = 0, rest = 0;
    GetDiskFreeSpaceW(L"C:\\", &sectors, &bytes, &rest, &rest);
    EXPECT_EQ(asNumber(VolumeGetClusterSize)(L"C:"), sectors * bytes);
    EXPECT_EQ(asNumber(VolumeIsSolidState)(L"C:\\folder"), -123);
    EXPECT_EQ(asNumber(VolumeGetClusterSize)(L"C:\\windows"), -123);
    wchar_t name[64];
    Given<wchar_t> points;
    if (GetVolumeNameForVolumeMountPointW(L"C:\\", name, 64)) {
        EXPECT_EQ(VolumeGetLetters(name, &points, &count), 0);
        EXPECT_STREQ(points.get(), L"C:\\");
        EXPECT_EQ(count, 1U);
    }
    EXPECT_NE(VolumeGetLetters(L"\\\\?\\Volume{none}", &points, &count), 0);
    EXPECT_EQ(VolumeFlush(L"C:\\folder"), 123);
    std::wstring opened;
    const Opens open([&](auto, const wchar_t* path, auto...) {
        opened = path;
        return CreateEventW(nullptr, TRUE, FALSE, nullptr); // any handle
    });
    Controls control;
    for (const char penalty : {'\0', '\1'}) {
        control.setHook([&](auto, HANDLE, DWORD, void*, DWORD, void* target, DWORD, DWORD* size, auto) {
            static_cast<char*>(target)[8] = penalty;
            return *size = 12, TRUE;
        });
        EXPECT_EQ(asNumber(VolumeIsSolidState)(L"C:\\"), 1 - penalty);
        EXPECT_EQ(opened, L"\\\\.\\C:");
    }
    control.setHook([](auto...) { return FALSE; });
    EXPECT_EQ(asNumber(VolumeIsSolidState)(L"C:"), -50);
}
