#include "core/win32/utils/paths/api.h"

#include <windows.h>

#include <winioctl.h>

#include <cstring>

#include "support/ImportReplacement.h"
#include "support/Utilities.h"

namespace {
std::wstring combined(const wchar_t* folder, const wchar_t* name, int strict)
{
    return wideOf([&](wchar_t** r) { return PathCombinePartsW(folder, name, strict, r); });
}
template <class Function>
std::wstring changed(Function function, const wchar_t* path)
{
    return wideOf([&](wchar_t** r) { return function(path, r); });
}
std::wstring inside(const wchar_t* path, const wchar_t* folder)
{
    return std::to_wstring(flagOf([&](int* f) { return PathIsInsideW(path, folder, f); }));
}
std::wstring parts(const wchar_t* path)
{
    const wchar_t* name = nullptr;
    const wchar_t* extension = nullptr;
    EXPECT_EQ(PathFileNameW(path, &name) + PathExtensionW(path, &extension), 0);
    EXPECT_TRUE(name >= path && extension >= name && extension <= path + wcslen(path));
    return std::wstring(name) + L"|" + extension;
}
std::wstring extracted(const wchar_t* command)
{
    Given<wchar_t> program;
    Given<wchar_t> arguments;
    const long code = PathExtractFromCommand(command, &program, &arguments);
    return code != 0 ? L"code " + std::to_wstring(code)
                     : std::wstring(program.get()) + L"|" + arguments.get();
}
std::wstring compact(const wchar_t* path, size_t characters)
{
    return wideOf([&](wchar_t** r) { return PathCompactForDisplay(path, characters, r); });
}
std::wstring isProtected(const wchar_t* path)
{
    return std::to_wstring(flagOf([&](int* f) { return PathIsProtected(path, f); }));
}
std::wstring volumeOf(const wchar_t* root)
{
    wchar_t name[MAX_PATH] = L"";
    GetVolumeNameForVolumeMountPointW(root, name, MAX_PATH);
    return name;
}
std::wstring valid(const std::wstring& name)
{
    return std::to_wstring(flagOf([&](int* f) { return PathIsValidFileName(name.c_str(), f); }));
}
} // namespace

TEST(Paths, DoWhatTheyPromise)
{
    const std::wstring deep = L"C:\\" + std::wstring(300, L'd');
    const struct
    {
        std::wstring actual, expected;
    } rows[] = {
        {combined(L"C:\\a\\", L"b", 1), L"C:\\a\\b"},
        {combined(L"C:\\a", L"..\\b", 0), L"C:\\a\\..\\b"},
        {combined(L"C:\\a", L"b\\..\\..\\c", 1), L"code 123"},
        {combined(L"C:\\a", L"D:b", 0), L"code 123"},
        {combined(L"C:\\a", L"\\b", 0), L"code 123"},
        {combined(L"C:\\a", L"/b", 0), L"code 123"},
        {combined(L"C:\\a", L"nul.txt", 1), L"code 123"},
        {combined(L"C:\\a", L"b:stream", 1), L"code 123"},
        {combined(L"C:\\a", L"b.", 1), L"code 123"},
        {combined(L"", L"b", 0), L"code 123"},
        {changed(PathNormalizeW, L"C:/a/./b/../c"), L"C:\\a\\c"},
        {changed(PathNormalizeW, L"C:\\..\\..\\a"), L"C:\\a"},
        {changed(PathNormalizeW, L"//server/share/../x"), L"\\\\server\\share\\x"},
        {changed(PathNormalizeW, L"\\\\?\\UNC\\server\\share\\x"), L"\\\\server\\share\\x"},
        {changed(PathNormalizeW, L"\\\\?\\C:\\a\\..\\b"), L"\\\\?\\C:\\a\\..\\b"}, // to the letter
        {changed(PathNormalizeW, L"C:\\a\\report."), L"\\\\?\\C:\\a\\report."},
        {changed(PathNormalizeW, L"\\\\.\\C:"), L"\\\\?\\C:"}, // the device, not the current folder
        {changed(PathNormalizeW, deep.c_str()), deep},
        {changed(PathNormalizeW, L""), L"code 123"},
        {changed(PathToLongFormW, L"C:\\WINDOWS\\.\\system32"), L"C:\\windows\\system32"},
        {changed(PathToLongFormW, L"C:\\not there"), L"code 2"},
        {changed(PathToExtendedFormW, L"C:\\a"), L"C:\\a"},
        {changed(PathToExtendedFormW, deep.c_str()), L"\\\\?\\" + deep},
        {changed(PathToExtendedFormW, L"C:\\a\\nul"), L"\\\\?\\C:\\a\\nul"},
        {changed(PathParentW, L"C:\\a\\b\\"), L"C:\\a"},
        {changed(PathParentW, L"C:\\a"), L"C:\\"},
        {changed(PathParentW, L"C:\\"), L"code 18"},
        {changed(PathParentW, L"\\\\server\\share\\"), L"code 18"},
        {changed(PathParentW, L"\\\\server\\share\\a"), L"\\\\server\\share\\"},
        {changed(PathParentW, L"\\\\?\\C:\\a"), L"\\\\?\\C:\\"},
        {changed(PathParentW, L"\\\\?\\UNC\\server\\share\\a\\b"), L"\\\\?\\UNC\\server\\share\\a"},
        {changed(PathParentW, L"name"), L"code 18"},
        {inside(L"C:\\A\\b", L"c:\\a"), L"1"},
        {inside(L"C:\\a", L"C:\\a\\"), L"1"},
        {inside(L"C:\\ab", L"C:\\a"), L"0"},
        {inside(L"C:\\a\\..\\b", L"C:\\a"), L"0"},
        {inside(L"C:\\a", L"C:\\"), L"1"},
        {parts(L"C:\\a.b\\c.tar.gz"), L"c.tar.gz|.gz"},
        {parts(L"C:\\a.b\\"), L"|"},
        {parts(L"C:.profile"), L".profile|"},
        {parts(L"a/.."), L"..|"},
        {changed(PathFromNative, L"\\??\\C:\\a"), L"C:\\a"},
        {changed(PathFromNative, L"\\??\\UNC\\server\\share"), L"\\\\server\\share"},
        {changed(PathFromNative, L"\\SystemRoot\\system32"), L"C:\\windows\\system32"},
        {changed(PathFromNative, L"\\SystemRooter"), L"code 161"},
        {changed(PathFromNative, L"\\Device\\Mup\\server\\share"), L"\\\\server\\share"},
        {changed(PathFromNative, L"\\Device\\NoSuchVolume\\a"), L"code 15"},
        {changed(PathFromNative, L"C:\\a"), L"code 161"},
        {changed(PathFromNative, changed(PathToNative, L"C:\\a\\b").c_str()), L"C:\\a\\b"},
        {changed(PathToNative, L"\\\\server\\share\\a"), L"\\Device\\Mup\\server\\share\\a"},
        {changed(PathToNative, L"C:\\").substr(0, 8), L"\\Device\\"},
        {extracted(L"\"C:\\no such\\a.exe\" -x \"y\""), L"C:\\no such\\a.exe|-x \"y\""},
        {extracted(L"%SystemRoot%\\system32\\cmd.exe /c"), L"C:\\windows\\system32\\cmd.exe|/c"},
        {extracted(L"C:\\windows\\system32\\cmd /c a b"), L"C:\\windows\\system32\\cmd.exe|/c a b"},
        {extracted(L"\\SystemRoot\\system32\\cmd.exe"), L"C:\\windows\\system32\\cmd.exe|"},
        {extracted(L"System32\\cmd.exe -k"), L"C:\\windows\\System32\\cmd.exe|-k"},
        {extracted(L"cmd /k"), L"C:\\windows\\system32\\cmd.exe|/k"},
        {extracted(L"C:\\no such\\a.exe b"), L"C:\\no|such\\a.exe b"},
        {extracted(L"not_there_18 x"), L"not_there_18|x"},
        {extracted((L"\"C:\\a.exe\" %windir%" + std::wstring(40000, L'x')).c_str()),
         L"C:\\a.exe|C:\\windows" + std::wstring(40000, L'x')},
        {extracted(L"  "), L"code 87"},
        {extracted(L"\"\" x"), L"code 87"},
        {compact(L"C:\\folder\\sub\\report.txt", 18), L"C:\\f...\\report.txt"},
        {compact(L"C:\\folder\\report.txt", 10), L"report.txt"},
        {compact(L"C:\\folder\\report.txt", 9), L"report..."},
        {compact(L"C:\\folder\\report.txt", 99), L"C:\\folder\\report.txt"},
        {compact(L"abcdef", 5), L"ab..."},
        {compact(L"\U0001F600\U0001F600\U0001F600", 4), L"..."},
        {compact(L"abcdef", 3), L"code 87"},
        {isProtected(L"C:\\"), L"1"},
        {isProtected(L"Z:/"), L"1"},
        {isProtected(L"\\\\server\\share"), L"1"},
        {isProtected(L"C:\\Windows\\System32"), L"1"},
        {isProtected(L"\\\\?\\C:\\windows"), L"1"},
        {isProtected(L"C:\\users\\somebody"), L"1"},
        {isProtected(L"C:\\users\\somebody\\file"), L"0"},
        {isProtected(L"C:\\Program Files"), L"1"},
        {isProtected(L"C:\\Program Files\\thing"), L"0"},
        {isProtected(L"C:\\windows2"), L"0"},
        {isProtected(L"C:\\users\\somebody\\AppData\\"), L"1"},
        {isProtected(L"C:\\users\\somebody\\appdata\\Roaming"), L"1"},
        {isProtected(L"C:\\users\\somebody\\AppData\\Local\\Temp"), L"0"},
        {isProtected(L"C:\\Windows::$INDEX_ALLOCATION"), L"1"},
        {isProtected(L"C:\\users:$I30:$INDEX_ALLOCATION\\somebody"), L"1"},
        {isProtected(L"C:\\Program Files. ."), L"1"},
        {isProtected(L"\\\\server\\c$\\Users"), L"1"},
        {isProtected(L"\\\\?\\UNC\\server\\ADMIN$\\system32"), L"1"},
        {isProtected(L"\\\\server\\share\\users"), L"0"},
        {isProtected(L"\\\\server\\c$. \\Users"), L"1"},
        {isProtected(L"Q:\\... "), L"1"}, // Win32 takes it for the root
        {isProtected(L"C:\\:$I30:$INDEX_ALLOCATION"), L"1"},
        {isProtected(L"\\\\?\\GLOBALROOT\\DosDevices\\C:\\x"), L"1"},
        {isProtected((volumeOf(L"C:\\") + L"windows").c_str()), L"1"},
        {isProtected((volumeOf(L"C:\\") + L"windows2").c_str()), L"0"},
        {isProtected(L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789ABCDEF}\\x"), L"1"}, // mounted nowhere
        {isProtected(L"C:\\Program Files\\Common Files"), L"1"},
        {valid(L"a b.txt") + valid(L"a.") + valid(L"a ") + valid(L"COM1.txt") + valid(L"a\x1f") + valid(L"") +
             valid(L"..") + valid(L"a:b") + valid(std::wstring(255, L'x')) + valid(std::wstring(256, L'x')),
         L"1000000010"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.actual, row.expected) << &row - rows;
}

TEST(Paths, MakeUniqueAndTwins)
{
    const auto unique = [](const wchar_t* extension) {
        return wideOf([&](wchar_t** r) { return PathMakeUnique(L"C:\\windows", L"u18", extension, r); });
    };
    EXPECT_EQ(unique(L"tmp"), L"C:\\windows\\u18.tmp");
    for (const wchar_t* taken : {L"C:\\windows\\u18.tmp", L"C:\\windows\\u18 (2).tmp"})
        CloseHandle(
            CreateFileW(taken, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    const HANDLE held = CreateFileW(L"C:\\windows\\u18.tmp", GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    EXPECT_EQ(unique(L".tmp"), L"C:\\windows\\u18 (2).tmp");
    CloseHandle(held);
    EXPECT_EQ(unique(L"t?p"), L"code 123");
    const std::string umlaut = utf8(L"C:/ü/x.ö");
    const char* name = nullptr;
    EXPECT_EQ(PathFileNameA(umlaut.c_str(), &name), 0);
    EXPECT_EQ(name, umlaut.c_str() + 6);
    EXPECT_EQ(narrowOf([&](char** r) { return PathNormalizeA(umlaut.c_str(), r); }), utf8(L"C:\\ü\\x.ö"));
    EXPECT_EQ(narrowOf([&](char** r) { return PathParentA("\xff\\a", r); }), "code 1113");
    char path[64] = "%windir%\\x";
    unsigned long needed = 0;
    EXPECT_EQ(DllGetPathValidatorA()->validate(path, 12, &needed), 234);
    EXPECT_EQ(path + std::to_string(needed), "%windir%\\x12");
    EXPECT_EQ(DllGetPathValidatorA()->validate(path, 13, &needed), 0);
    EXPECT_STREQ(path, "C:\\windows\\x");
    EXPECT_EQ(DllGetPathValidatorA()->validate(path, 64, nullptr), 1168);
    EXPECT_EQ(DllGetPathValidatorA()->validate(nullptr, 64, &needed), 87);
}

// Windows' own format: the platform here has no such links, so the answer comes from the test.
TEST(Paths, LinkTargets)
{
    const auto data = [](DWORD tag, const std::wstring& target, WORD lie) {
        std::string bytes(20 + (tag == IO_REPARSE_TAG_SYMLINK ? 4 : 0), '\0');
        std::memcpy(bytes.data(), &tag, 4);
        const WORD length = static_cast<WORD>(target.size() * 2 + lie);
        std::memcpy(bytes.data() + 10, &length, 2);
        bytes.resize(tag == IO_REPARSE_TAG_SYMLINK ? 20 : 16);
        return bytes.append(reinterpret_cast<const char*>(target.data()), target.size() * 2);
    };
    const struct
    {
        std::string bytes;
        std::wstring expected;
    } rows[] = {
        {data(IO_REPARSE_TAG_MOUNT_POINT, L"\\??\\C:\\there", 0), L"C:\\there"},
        {data(IO_REPARSE_TAG_MOUNT_POINT, L"\\??\\Volume{1}\\", 0), L"\\\\?\\Volume{1}\\"},
        {data(IO_REPARSE_TAG_SYMLINK, L"..\\there", 0), L"..\\there"},
        {data(IO_REPARSE_TAG_SYMLINK, L"x", 2), L"code 4392"},
        {data(0x80000013, L"x", 0), L"code 4394"},
        {"abc", L"code 4392"},
    };
    CountedImport<"DeviceIoControl", decltype(&DeviceIoControl)> control(sysmaintModule());
    for (const auto& row : rows) {
        control.setHook(
            [&](auto, HANDLE, DWORD, void*, DWORD, void* target, DWORD, DWORD* size, OVERLAPPED*) {
                std::memcpy(target, row.bytes.data(), row.bytes.size());
                *size = static_cast<DWORD>(row.bytes.size());
                return TRUE;
            });
        EXPECT_EQ(changed(PathReadLinkTarget, L"C:\\windows"), row.expected);
    }
    control.setHook(nullptr);
    EXPECT_EQ(changed(PathReadLinkTarget, L"C:\\not there"), L"code 2");
    int is = 7;
    unsigned long tag = 7;
    EXPECT_EQ(PathIsReparsePoint(L"C:\\windows\\", &is, &tag), 0);
    EXPECT_EQ(is + static_cast<int>(tag), 0);
}
