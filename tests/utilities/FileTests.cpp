#include "core/win32/utils/files/api.h"

#include <windows.h>

#include <sddl.h>

#include <atomic>
#include <thread>

#include "core/win32/utils/volumes/api.h"
#include "support/ImportReplacement.h"
#include "support/Utilities.h"

namespace {
/// A folder that is deleted with the test, and Win32's view of it.
struct Scratch
{
    Scratch()
    {
        wchar_t text[1024];
        GetEnvironmentVariableW(L"SYSMAINT_TEST_FOLDER", text, 1024);
        root = std::wstring(text) + L"\\scratch";
        FolderDeleteTree(root.c_str(), nullptr);
        EXPECT_EQ(FolderCreateTree(root.c_str()), 0);
    }
    ~Scratch() { FolderDeleteTree(root.c_str(), nullptr); }
    [[nodiscard]] std::wstring operator/(const std::wstring& name) const { return root + L"\\" + name; }
    std::wstring root;
};

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
std::string entries(const std::wstring& folder)
{
    std::wstring names;
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
    for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileW(search, &found))
        if (found.cFileName[0] != L'.')
            names += std::wstring(found.cFileName) + L" ";
    FindClose(search);
    return utf8(names);
}
std::string rights(const std::wstring& path)
{
    std::string list(1024, '\0');
    DWORD size = 0;
    EXPECT_TRUE(GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, list.data(), 1024, &size));
    return list;
}
DWORD attributes(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str());
}
} // namespace

TEST(Files, ReadAndWrite)
{
    const Scratch scratch;
    const std::wstring file = scratch / L"a";
    EXPECT_EQ(write(file, "first"), 0);
    EXPECT_EQ(write(file, "second"), 0);
    EXPECT_EQ(content(file), "second");
    EXPECT_EQ(content(file, 6), "second");
    EXPECT_EQ(content(file, 5), "code 223");
    EXPECT_EQ(content(scratch / L"b"), "code 2");
    EXPECT_EQ(write(scratch / L"no\\a", "x"), 3);
    // After any failure the old content is complete and nothing is left beside it.
    const auto failing = [&](auto& import, auto result) {
        import.failCall(1, result, ERROR_DISK_FULL);
        EXPECT_EQ(write(file, "third"), 112);
        EXPECT_EQ(content(file), "second");
        EXPECT_EQ(entries(scratch.root), "a ");
    };
    const HMODULE dll = sysmaintModule();
    {
        CountedImport<"WriteFile", decltype(&WriteFile)> i(dll);
        failing(i, FALSE);
    }
    {
        CountedImport<"FlushFileBuffers", decltype(&FlushFileBuffers)> i(dll);
        failing(i, FALSE);
    }
    {
        CountedImport<"MoveFileExW", decltype(&MoveFileExW)> i(dll);
        failing(i, FALSE);
    }
    {
        CountedImport<"CreateFileW", decltype(&::CreateFileW)> i(dll);
        failing(i, INVALID_HANDLE_VALUE);
    }
    // Readers always find the file, and its access rights stay.
    std::atomic<bool> isDone = false;
    int missed = 0;
    std::thread looking([&] {
        while (!isDone)
            missed += attributes(file) == INVALID_FILE_ATTRIBUTES;
    });
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
    PSECURITY_DESCRIPTOR open = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;FA;;;WD)", 1, &open, nullptr);
    EXPECT_TRUE(SetFileSecurityW(file.c_str(), DACL_SECURITY_INFORMATION, open));
    LocalFree(open);
    const std::string before = rights(file);
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(write(file, "second"), 0);
    isDone = true;
    looking.join();
    EXPECT_EQ(missed, 0);
    EXPECT_EQ(attributes(file) & 7U, 6U);
    EXPECT_TRUE(rights(file) == before);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(write(file, "third"), 6009);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_EQ(content(file) + entries(scratch.root), "seconda ");
    EXPECT_EQ(write(scratch / std::wstring(240, L'x'), "x"), 0);

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
    EXPECT_EQ(FileGetIdentity((scratch / L".\\a").c_str(), &serial, &other, &links), 0);
    EXPECT_EQ(id, other);
    EXPECT_EQ(links, 1U);
}

TEST(Files, Delete)
{
    const Scratch scratch;
    const std::wstring file = scratch / L"a";
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
    EXPECT_EQ(FileDeleteForced(scratch.root.c_str(), &flag), 336);
    EXPECT_EQ(write(file, "x"), 0);
    EXPECT_EQ(flagOf([&](int* f) { return FileIsInUse(file.c_str(), f); }), 0);
    const HANDLE held =
        CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(flagOf([&](int* f) { return FileIsInUse(file.c_str(), f); }), 1);
    // One that is held waits for the restart, or keeps its attributes where it cannot.
    wchar_t list[MAX_PATH];
    GetWindowsDirectoryW(list, MAX_PATH);
    wcscat(list, L"\\ForceDelete.txt");
    DeleteFileW(list);
    EXPECT_EQ(FileDeleteForced(file.c_str(), &flag), 0);
    EXPECT_EQ(flag, 1);
    DeleteFileW(list);
    CreateDirectoryW(list, nullptr);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(FileDeleteForced(file.c_str(), &flag), 32);
    EXPECT_EQ(attributes(file) & 1U, 1U);
    RemoveDirectoryW(list);
    CloseHandle(held);
    Given<unsigned long> ids;
    size_t count = 7;
    EXPECT_EQ(FileGetLockers(file.c_str(), &ids, &count), 0);
    EXPECT_EQ(FileGetLockers((scratch / L"b").c_str(), &ids, &count), 2);
    for (const wchar_t* refused : {L"C:\\windows", L"\\\\server\\share\\a", L"C:\\windows\\*"})
        EXPECT_EQ(FileMoveToRecycleBin(refused), 50) << utf8(refused);
    EXPECT_EQ(FileMoveToRecycleBin((scratch / L"b").c_str()), 2);
    EXPECT_EQ(FileMoveToRecycleBin((scratch / std::wstring(250, L'x')).c_str()), 206);
    EXPECT_EQ(FileMoveToRecycleBin(file.c_str()), 0);
    EXPECT_EQ(attributes(file), INVALID_FILE_ATTRIBUTES);
}

TEST(Folders, TreesAndLinks)
{
    const Scratch scratch;
    std::wstring deep = scratch / L"tree";
    for (int i = 0; i < 20; ++i)
        deep += L"\\" + std::wstring(40, static_cast<wchar_t>(L'a' + i));
    EXPECT_EQ(FolderCreateTree((deep + L"\\").c_str()), 0);
    EXPECT_EQ(FolderCreateTree(deep.c_str()), 0);
    const std::wstring tree = scratch / L"tree";
    EXPECT_EQ(write(tree + L"\\report.", "12345"), 0); // a name that Win32 would take for another
    EXPECT_EQ(write(deep + L"\\locked", "123"), 0);
    EXPECT_EQ(FolderCreateTree((tree + L"\\report.\\x").c_str()), 267);
    EXPECT_EQ(FolderCreateTree(L"Q:\\x"), 3);
    unsigned long long bytes = 0, files = 0, folders = 0;
    EXPECT_EQ(FolderGetSize(tree.c_str(), nullptr, &bytes, &files, &folders), 0);
    EXPECT_EQ(bytes * 10000 + files * 100 + folders, 80220U);
    EXPECT_EQ(FolderGetSize((tree + L"\\report.").c_str(), nullptr, &bytes, &files, &folders), 267);
    EXPECT_EQ(flagOf([&](int* f) { return FolderIsEmpty(tree.c_str(), f); }), 0);
    // A link that appears between the listing and the deletion is not followed; the platform reports one
    // here.
    EXPECT_EQ(FolderCreateTree((scratch / L"outside").c_str()), 0);
    EXPECT_EQ(write(scratch / L"outside\\keep", "x"), 0);
    const HANDLE cancel = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    EXPECT_EQ(FolderDeleteTree(tree.c_str(), cancel), 1223);
    const auto noEvent = reinterpret_cast<HANDLE>(std::uintptr_t{0xABC0});
    EXPECT_EQ(FolderDeleteTree(tree.c_str(), noEvent), 6);
    EXPECT_EQ(FolderGetSize(tree.c_str(), noEvent, &bytes, &files, &folders), 6);
    EXPECT_EQ(FileWriteAtomically(tree.c_str(), "x", 1), 336) << "a folder is no file to replace";
    EXPECT_EQ(FolderGetSize(tree.c_str(), cancel, &bytes, &files, &folders), 1223);
    CloseHandle(cancel);
    {
        CountedImport<"GetFileAttributesW", decltype(&GetFileAttributesW)> look(sysmaintModule());
        look.setHook([&](auto original, const wchar_t* path) {
            const DWORD found = original(path);
            return std::wstring_view(path).ends_with(L"outside") ? found | FILE_ATTRIBUTE_REPARSE_POINT
                                                                 : found;
        });
        EXPECT_EQ(FolderDeleteTree((scratch / L"outside").c_str(), nullptr), 681);
        EXPECT_EQ(FolderGetSize((scratch / L"outside").c_str(), nullptr, &bytes, &files, &folders), 681);
    }
    EXPECT_EQ(content(scratch / L"outside\\keep"), "x");
    // What cannot be deleted stays; the rest is deleted.
    const HANDLE held = CreateFileW((L"\\\\?\\" + deep + L"\\locked").c_str(), GENERIC_READ, FILE_SHARE_READ,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(FolderDeleteTree(tree.c_str(), nullptr), 32);
    EXPECT_EQ(FolderGetSize(tree.c_str(), nullptr, &bytes, &files, &folders), 0);
    EXPECT_EQ(bytes * 10000 + files * 100 + folders, 30120U);
    CloseHandle(held);
    SetFileAttributesW((L"\\\\?\\" + deep + L"\\locked").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(FolderDeleteTree((tree + L"\\").c_str(), nullptr), 0);
    EXPECT_EQ(entries(scratch.root), "outside ");
    // Two calls for one folder do not disturb each other.
    for (int i = 0; i < 60; ++i)
        EXPECT_EQ(FolderCreateTree(
                      (scratch / L"both\\" + std::to_wstring(i % 8) + L"\\" + std::to_wstring(i)).c_str()),
                  0);
    const std::wstring both = scratch / L"both";
    std::atomic<int> ready = 0;
    long codes[2] = {7, 7};
    const auto remove = [&](long& code) {
        for (++ready; ready < 2;)
            SwitchToThread();
        code = FolderDeleteTree(both.c_str(), nullptr);
    };
    std::thread second([&] { remove(codes[1]); });
    remove(codes[0]);
    second.join();
    EXPECT_EQ(codes[0] * 1000 + codes[1], 0);
    for (const wchar_t* kept : {L"C:\\", L"C:\\windows", L"C:\\users", L"C:\\Users::$INDEX_ALLOCATION",
                                L"\\\\localhost\\C$\\users\\x\\AppData", L"c:/Program Files/."})
        EXPECT_EQ(FolderDeleteTree(kept, nullptr), 50) << utf8(kept);
    EXPECT_EQ(FolderDeleteTree((scratch / L"outside\\keep").c_str(), nullptr), 267);
    EXPECT_EQ(FolderDeleteTree((scratch / L"none").c_str(), nullptr), 2);
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
    EXPECT_EQ(numberOf<unsigned long>([](unsigned long* v) { return VolumeGetClusterSize(L"C:", v); }),
              sectors * bytes);
    EXPECT_EQ(flagOf([](int* f) { return VolumeIsSolidState(L"C:\\folder", f); }), -123);
    EXPECT_EQ(
        numberOf<unsigned long>([](unsigned long* v) { return VolumeGetClusterSize(L"C:\\windows", v); }),
        -123);
    wchar_t name[64];
    Given<wchar_t> points;
    if (GetVolumeNameForVolumeMountPointW(L"C:\\", name, 64)) {
        EXPECT_EQ(VolumeGetLetters(name, &points, &count), 0);
        EXPECT_STREQ(points.get(), L"C:\\");
        EXPECT_EQ(count, 1U);
    }
    EXPECT_NE(VolumeGetLetters(L"\\\\?\\Volume{none}", &points, &count), 0);
    EXPECT_EQ(VolumeFlush(L"C:\\folder"), 123);
    CountedImport<"CreateFileW", decltype(&::CreateFileW)> open(sysmaintModule());
    std::wstring opened;
    open.setHook([&](auto, const wchar_t* path, auto...) {
        opened = path;
        return CreateEventW(nullptr, TRUE, FALSE, nullptr); // any handle
    });
    CountedImport<"DeviceIoControl", decltype(&DeviceIoControl)> control(sysmaintModule());
    for (const char penalty : {'\0', '\1'}) {
        control.setHook(
            [&](auto, HANDLE, DWORD, void*, DWORD, void* target, DWORD, DWORD* size, OVERLAPPED*) {
                static_cast<char*>(target)[8] = penalty;
                *size = 12;
                return TRUE;
            });
        EXPECT_EQ(flagOf([](int* f) { return VolumeIsSolidState(L"C:\\", f); }), 1 - penalty);
        EXPECT_EQ(opened, L"\\\\.\\C:");
    }
    control.setHook([](auto...) { return FALSE; });
    EXPECT_EQ(flagOf([](int* f) { return VolumeIsSolidState(L"C:", f); }), -50);
}
