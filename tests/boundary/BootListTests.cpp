#include "support/Wipe.h"

namespace {
const std::wstring kHeader(L"\0\0\r\n", 4);

std::wstring lineOf(const std::wstring& path, const wchar_t* numbers = L"1*\t*1")
{
    return L"*FileShred*\t*\\??\\" + path + L"*\t*" + numbers + L"\r\n";
}

const auto refuseToWipe = failing(INVALID_HANDLE_VALUE, ERROR_IO_DEVICE,
                                  [](auto... all) { return std::get<5>(std::tuple(all...)) == kOpenToWipe; });

/// With files that refuse to be opened, and one of them.
struct BootListTest : WipeTest
{
    BootListTest()
    {
        files.setHook(refuseToWipe);
        writeBytes(held, {1});
    }
    const std::wstring held = at(L"some file.txt");
};

const std::wstring kVolume = L"Volume{01234567-89ab-cdef-0123-456789ABCDEF}\\";

struct Case
{
    std::wstring given, listed = L""; // empty: refused
    UINT driveType = DRIVE_FIXED;
    const wchar_t* device = L"\\Device\\HarddiskVolume7";
    DWORD attributes = 0;
};

/// A name that holds the beginning of a line inside its characters.
std::wstring lineInName()
{
    std::wstring name;
    for (const wchar_t c : std::wstring(L"*FileShred*\t*\\??\\C"))
        name += static_cast<wchar_t>((name.empty() ? L'n' : 0) | c << 8U);
    return name;
}

std::vector<Case> casesIn(const std::wstring& folder)
{
    const std::wstring there = folder + L"\\there";
    std::vector<Case> cases = {
        {there, there},
        {L"\\\\?\\" + there, there},
        {L"\\??\\" + there, there},
        {folder + L"/./there", there},
        {folder + L"\\held"},  // a file that takes the name before the restart must not be destroyed
        {L"S:\\there", there}, // a letter that stands for a folder
        {L"N:\\there"},        // one that stands for a share
        {L"\\\\?\\" + kVolume + L"there", kVolume + L"there"},
        {L"\\\\?\\" + kVolume},
        {there, L"", DRIVE_REMOTE},
        {there, L"", DRIVE_FIXED, L"\\??\\C:\\somewhere"},
        {.given = there, .attributes = FILE_ATTRIBUTE_REPARSE_POINT},
        {folder + L"\\folder"},
        {folder + L"\\" + lineInName()},
        {bootListPath()}};
    for (const wchar_t* refused :
         {L"", L"C:\\", L"\\\\.\\PhysicalDrive0", L"\\\\?\\PhysicalDrive0", L"\\\\.\\pipe\\x",
          L"\\\\server\\share\\x", L"\\\\?\\Volume{01234567}\\x", L"\\\\?\\C:\\a\\..\\b", L"\\\\?\\C:\\a/b",
          L"C:\\none\\a*", L"C:\\none\\a?b", L"C:\\none\\a<", L"C:\\none\\a\tb", L"C:\\none\\a\x1f",
          L"C:\\none\\a:stream", L"C:\\none\\a\\",
          L"C:\\none\\a\r\n*FileShred*\t*\\??\\C:\\precious*\t*1*\t*1"})
        cases.push_back({refused});
    return cases;
}
} // namespace

/// Readers keep it closed for a moment; another process of this library makes it and has the turn; and
/// somebody who knows no turns adds a line just before ours.
TEST_F(BootListTest, LosesNoLineOfOthers)
{
    const std::wstring theirs = lineOf(at(L"theirs"));
    const auto openToAdd = [] {
        constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
        return Win32Handle(::CreateFileW(bootListPath().c_str(), FILE_APPEND_DATA, kShare, nullptr,
                                         OPEN_ALWAYS, 0, nullptr));
    };
    const auto add = [&](const std::wstring& text) {
        DWORD written = 0;
        EXPECT_TRUE(WriteFile(openToAdd().get(), text.data(),
                              static_cast<DWORD>(text.size() * sizeof(wchar_t)), &written, nullptr));
    };
    bool isRead = true;
    files.setHook(
        [&, refuse = refuseToWipe](auto open, LPCWSTR name, DWORD access, DWORD share, auto... rest) mutable {
            const bool isToAdd = access == GENERIC_WRITE && share == FILE_SHARE_WRITE;
            if (!isToAdd || !std::exchange(isRead, false))
                return refuse(open, name, access, share, rest...);
            return SetLastError(ERROR_SHARING_VIOLATION), INVALID_HANDLE_VALUE;
        });
    Replaced<"LockFileEx", decltype(&LockFileEx)> locks([&](auto original, auto... all) -> BOOL {
        if (locks.calls() > 1)
            return original(all...);
        add(kHeader + theirs);
        return SetLastError(ERROR_LOCK_VIOLATION), FALSE;
    });
    const Writes writes(before([&](auto...) {
        OVERLAPPED place{};
        place.OffsetHigh = 0x40000000;
        EXPECT_FALSE(LockFileEx(openToAdd().get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1,
                                0, &place))
            << "it is our turn";
        add(theirs);
    }));
    EXPECT_EQ(wipe(kWipeFile, held), ERROR_IO_DEVICE);
    EXPECT_EQ(ForceDeleteIsScheduled(at(L"SOME file.txt").c_str()), 1);
    EXPECT_EQ(ForceDeleteIsScheduled(at(L"some file").c_str()), 0);
    EXPECT_EQ(takeBootList(), kHeader + theirs + theirs + lineOf(held));
}

TEST_F(BootListTest, TakesPlainPathsOfFilesAlone)
{
    writeBytes(at(L"there"), Bytes(10, 0xE5));
    writeBytes(at(lineInName()), {1});
    CreateDirectoryW(at(L"folder").c_str(), nullptr);
    const auto realPath = [&](const std::wstring& path) {
        for (const std::wstring& root : {std::wstring(L"S:\\"), std::wstring(L"N:\\"), kVolume})
            if (const std::size_t begin = path.find(root); begin != std::wstring::npos)
                return at(path.substr(begin + root.size()));
        return path;
    };
    files.setHook([&, refuse = refuseToWipe](auto open, LPCWSTR name, auto... all) mutable {
        return refuse(open, realPath(name).c_str(), all...);
    });
    const Case* now = nullptr;
    Replaced<"GetFinalPathNameByHandleW", decltype(&GetFinalPathNameByHandleW)> finals(
        [&](auto original, HANDLE file, LPWSTR path, auto... rest) -> DWORD {
            if (now->given[0] != L'N')
                return original(file, path, rest...);
            std::wcscpy(path, L"\\\\?\\UNC\\server\\share\\there");
            return 26;
        });
    Replaced<"GetDriveTypeW", decltype(&GetDriveTypeW)> types([&](auto...) { return now->driveType; });
    Replaced<"QueryDosDeviceW", decltype(&QueryDosDeviceW)> devices([&](auto, auto drive, auto target, auto) {
        std::wcscpy(target, drive[0] == L'S' ? L"\\??\\C:\\somewhere" : now->device);
        return 1UL;
    });
    Attributes attributes([&](auto original, LPCWSTR path) { // a missing file has all bits set
        return original(realPath(path).c_str()) | now->attributes;
    });
    Deletions removals(kEachCall, FALSE, ERROR_ACCESS_DENIED);
    for (const Case& c : casesIn(folder)) {
        SCOPED_TRACE(testing::Message() << c.given << " on a drive of type " << c.driveType);
        now = &c;
        writeBytes(bootListPath(), {'x', 0, '\r', 0, '\n', 0});
        wiper->setNeedsReboot(0);
        EXPECT_NE(wipe(kWipeFile, c.given), 0);
        EXPECT_EQ(ForceDeleteIsScheduled(c.given.c_str()), c.listed.empty() ? 0 : 1);
        EXPECT_EQ(takeBootList(), L"x\r\n" + (c.listed.empty() ? L"" : lineOf(c.listed)));
        EXPECT_EQ(wiper->getNeedsReboot(), c.listed.empty() ? 0U : 1U);
    }
}

TEST_F(BootListTest, IsWrittenByteForByte)
{
    std::wstring opened;
    files.setHook(failing(INVALID_HANDLE_VALUE, ERROR_IO_DEVICE,
                          [&](LPCWSTR name, DWORD access, DWORD share, auto... rest) {
                              if (access == GENERIC_WRITE && share == FILE_SHARE_WRITE)
                                  opened = name;
                              return std::get<2>(std::tuple(rest...)) == kOpenToWipe;
                          }));
    EXPECT_EQ(wipe(kWipeFile, held), ERROR_IO_DEVICE);
    EXPECT_EQ(opened, bootListPath().insert(bootListPath().rfind(L'\\'), L"\\"));
    EXPECT_EQ(wipe(kWipeFile, held, 3, 0xFFFFFFFF), ERROR_IO_DEVICE); // numbers are signed
    EXPECT_EQ(takeBootList(), kHeader + lineOf(held) + lineOf(held, L"3*\t*-1"));
    writeBytes(bootListPath(), {});
    wipe(kWipeFile, held, 2, 7);
    EXPECT_EQ(takeBootList(), kHeader + lineOf(held, L"2*\t*7"));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    writeBytes(bootListPath(), {'x', 0});
    // The boot-time program has no current folder.
    EXPECT_EQ(wipe(kWipeFile, L"some file.txt"), ERROR_IO_DEVICE);
    EXPECT_EQ(wipe(kWipeFile, folder + L"/tree\\..\\some file.txt"), ERROR_IO_DEVICE);
    std::filesystem::current_path(before);
    EXPECT_EQ(takeBootList(), L"x?\r\n" + lineOf(held) + lineOf(held));

    // After a line that somebody could write only in part.
    for (const auto& [torn, last] :
         {std::pair(Bytes{'x', 0, '\r', 0}, L"x\r"), {Bytes{'\r', 0, '\n'}, L"\r\n"}, {Bytes{'x'}, L"x"}}) {
        writeBytes(bootListPath(), torn);
        wipe(kWipeFile, held);
        EXPECT_EQ(takeBootList(), last + (L"?\r\n" + lineOf(held)));
    }
}

TEST_F(BootListTest, IsReadAndWrittenAfterTornLines)
{
    const std::wstring line = lineOf(held);
    for (const auto& [list, isListed] : {std::pair{lineOf(folder).substr(0, 40) + line, 1},
                                         {line.substr(0, line.size() - 2) + lineOf(folder), 0},
                                         {line.substr(0, line.size() - 2), 0}}) {
        writeText(bootListPath(), list);
        EXPECT_EQ(ForceDeleteIsScheduled(held.c_str()), isListed);
    }
    writeBytes(bootListPath(), {0, 0, 0});
    EXPECT_EQ(wipe(kWipeFile, at(L"none")), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(readBytes(bootListPath()), (Bytes{0, 0, 0}));
    // Somebody was interrupted inside a character: whole lines stand at odd bytes, and the next follows them.
    Bytes list = {'x'};
    for (const std::wstring& name : {held, at(L"held 2"), at(L"held 3")}) {
        writeBytes(name, {1});
        EXPECT_EQ(name == held ? ERROR_IO_DEVICE : wipe(kWipeFile, name), ERROR_IO_DEVICE);
        const std::wstring text = lineOf(name);
        const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
        list.insert(list.end(), bytes, bytes + text.size() * sizeof(wchar_t));
        if (name == held)
            writeBytes(bootListPath(), list);
        EXPECT_TRUE(readBytes(bootListPath()) == list && ForceDeleteIsScheduled(name.c_str()) == 1);
    }
    EXPECT_EQ(ForceDeleteIsScheduled(at(L"held 4").c_str()), 0);
}

/// A list that others hold, and a disk that takes half a line, leave it unchanged; the caller is told.
TEST_F(BootListTest, StaysWholeWhenALineCannotBeAdded)
{
    writeBytes(bootListPath(), {'x', 0, '\r', 0, '\n', 0});
    Win32Handle holder = openedFile(bootListPath());
    const auto expect = [&](DWORD code) {
        wiper->setNeedsReboot(0);
        EXPECT_TRUE(wipe(kWipeFile, held) == ERROR_IO_DEVICE && wiper->getNeedsReboot() == 1U);
        EXPECT_TRUE(ForceDeleteIsScheduled(held.c_str()) == 0 && GetLastError() == code);
    };
    expect(ERROR_SHARING_VIOLATION);
    holder.reset();
    Writes writes([](auto write, HANDLE file, LPCVOID data, DWORD size, auto... rest) {
        return write(file, data, size / 2, rest...);
    });
    expect(ERROR_SUCCESS);
    EXPECT_EQ(takeBootList(), L"x\r\n");
}
