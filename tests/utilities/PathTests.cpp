#include "support/ImportReplacement.h"
#include "support/Utilities.h"

#include <winioctl.h>

namespace {
const auto combined = asText(PathCombinePartsW);
const auto normalized = asText(PathNormalizeW);
const auto parent = asText(PathParentW);
const auto fromNative = asText(PathFromNative);
const auto compact = asText(PathCompactForDisplay);

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
    Given<wchar_t> tool, arguments;
    const long code = PathExtractFromCommand(command, &tool, &arguments);
    return code != 0 ? L"code " + std::to_wstring(code) : std::wstring(tool.get()) + L"|" + arguments.get();
}
} // namespace

TEST(Paths, AreCombinedAndWrittenInOtherForms)
{
    const std::wstring deep = L"C:\\" + std::wstring(300, L'd');
    EXPECT_EQ(combined(L"C:\\a\\", L"b", 1), L"C:\\a\\b");
    EXPECT_EQ(combined(L"C:\\a", L"..\\b", 0), L"C:\\a\\..\\b");
    for (const wchar_t* name : {L"b\\..\\..\\c", L"nul.txt", L"b:stream", L"b."})
        EXPECT_EQ(combined(L"C:\\a", name, 1), L"code 123") << utf8(name);
    for (const wchar_t* name : {L"D:b", L"\\b", L"/b"})
        EXPECT_EQ(combined(L"C:\\a", name, 0), L"code 123") << utf8(name);
    EXPECT_EQ(combined(L"", L"b", 0), L"code 123");
    EXPECT_EQ(normalized(L"C:/a/./b/../c"), L"C:\\a\\c");
    EXPECT_EQ(normalized(L"C:\\..\\..\\a"), L"C:\\a");
    for (const wchar_t* path : {L"//server/share/../x", L"\\\\?\\UNC\\server\\share\\x"})
        EXPECT_EQ(normalized(path), L"\\\\server\\share\\x");
    EXPECT_EQ(normalized(L"\\\\?\\C:\\a\\..\\b"), L"\\\\?\\C:\\a\\..\\b"); // to the letter
    EXPECT_EQ(normalized(L"C:\\a\\report."), L"\\\\?\\C:\\a\\report.");
    EXPECT_EQ(normalized(L"\\\\.\\C:"), L"\\\\?\\C:"); // the device, not the current folder
    EXPECT_EQ(normalized(deep.c_str()), deep);
    EXPECT_EQ(normalized(L""), L"code 123");
    EXPECT_EQ(asText(PathToLongFormW)(L"C:\\WINDOWS\\.\\system32"), L"C:\\windows\\system32");
    EXPECT_EQ(asText(PathToLongFormW)(L"C:\\not there"), L"code 2");
    EXPECT_EQ(asText(PathToExtendedFormW)(L"C:\\a"), L"C:\\a");
    EXPECT_EQ(asText(PathToExtendedFormW)(deep.c_str()), L"\\\\?\\" + deep);
    EXPECT_EQ(asText(PathToExtendedFormW)(L"C:\\a\\nul"), L"\\\\?\\C:\\a\\nul");
    EXPECT_EQ(fromNative(L"\\??\\C:\\a"), L"C:\\a");
    for (const wchar_t* path : {L"\\??\\UNC\\server\\share", L"\\Device\\Mup\\server\\share"})
        EXPECT_EQ(fromNative(path), L"\\\\server\\share");
    EXPECT_EQ(fromNative(L"\\SystemRoot\\system32"), L"C:\\windows\\system32");
    for (const wchar_t* path : {L"\\SystemRooter", L"C:\\a"})
        EXPECT_EQ(fromNative(path), L"code 161");
    EXPECT_EQ(fromNative(L"\\Device\\NoSuchVolume\\a"), L"code 15");
    EXPECT_EQ(fromNative(asText(PathToNative)(L"C:\\a\\b").c_str()), L"C:\\a\\b");
    EXPECT_EQ(asText(PathToNative)(L"\\\\server\\share\\a"), L"\\Device\\Mup\\server\\share\\a");
    EXPECT_EQ(asText(PathToNative)(L"C:\\").substr(0, 8), L"\\Device\\");
}

TEST(Paths, AreTakenApartAndShortened)
{
    for (const wchar_t* root : {L"C:\\", L"\\\\server\\share\\", L"name"})
        EXPECT_EQ(parent(root), L"code 18");
    EXPECT_EQ(
        (Texts{parent(L"C:\\a\\b\\"), parent(L"C:\\a"), parent(L"\\\\server\\share\\a"),
               parent(L"\\\\?\\C:\\a"), parent(L"\\\\?\\UNC\\server\\share\\a\\b")}),
        (Texts{L"C:\\a", L"C:\\", L"\\\\server\\share\\", L"\\\\?\\C:\\", L"\\\\?\\UNC\\server\\share\\a"}));
    for (const auto& [path, folder, is] : {std::tuple(L"C:\\A\\b", L"c:\\a", 1),
                                           {L"C:\\a", L"C:\\a\\", 1},
                                           {L"C:\\ab", L"C:\\a", 0},
                                           {L"C:\\a\\..\\b", L"C:\\a", 0},
                                           {L"C:\\a\\x.", L"C:\\a", 1},
                                           {L"C:\\a\\nul\\b", L"\\\\?\\C:\\A", 1},
                                           {L"\\??\\C:\\a\\b ", L"C:\\a\\", 1},
                                           {L"\\\\s\\h\\nul", L"\\\\?\\UNC\\s\\h", 1},
                                           {L"C:\\a.\\b", L"C:\\a", 0},
                                           {L"C:\\a", L"C:\\", 1}})
        EXPECT_EQ(asNumber(PathIsInsideW)(path, folder), is) << utf8(path);
    EXPECT_EQ((Texts{parts(L"C:\\a.b\\c.tar.gz"), parts(L"C:\\a.b\\"), parts(L"C:.profile"), parts(L"a/..")}),
              (Texts{L"c.tar.gz|.gz", L"|", L".profile|", L"..|"}));
    EXPECT_EQ(extracted(L"\"C:\\no such\\a.exe\" -x \"y\""), L"C:\\no such\\a.exe|-x \"y\"");
    EXPECT_EQ(extracted(L"%SystemRoot%\\system32\\cmd.exe /c"), L"C:\\windows\\system32\\cmd.exe|/c");
    EXPECT_EQ(extracted(L"C:\\windows\\system32\\cmd /c a b"), L"C:\\windows\\system32\\cmd.exe|/c a b");
    EXPECT_EQ(extracted(L"\\SystemRoot\\system32\\cmd.exe"), L"C:\\windows\\system32\\cmd.exe|");
    EXPECT_EQ(extracted(L"System32\\cmd.exe -k"), L"C:\\windows\\System32\\cmd.exe|-k");
    EXPECT_EQ(extracted(L"cmd /k"), L"C:\\windows\\system32\\cmd.exe|/k");
    EXPECT_EQ(extracted(L"C:\\no such\\a.exe b"), L"C:\\no|such\\a.exe b");
    EXPECT_EQ(extracted(L"not_there_18 x"), L"not_there_18|x");
    const std::wstring more(40000, L'x');
    EXPECT_EQ(extracted((L"\"C:\\a.exe\" %windir%" + more).c_str()), L"C:\\a.exe|C:\\windows" + more);
    for (const wchar_t* none : {L"  ", L"\"\" x"})
        EXPECT_EQ(extracted(none), L"code 87");
    const wchar_t* path = L"C:\\folder\\report.txt";
    EXPECT_EQ(
        (Texts{compact(L"C:\\folder\\sub\\report.txt", 18), compact(path, 10), compact(path, 9),
               compact(path, 99), compact(L"abcdef", 5), compact(L"\U0001F600\U0001F600\U0001F600", 4),
               compact(L"abcdef", 3)}),
        (Texts{L"C:\\f...\\report.txt", L"report.txt", L"report...", path, L"ab...", L"...", L"code 87"}));
}

TEST(Paths, ProtectedAndValid)
{
    wchar_t volume[MAX_PATH] = L"";
    GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH);
    const std::wstring there = std::wstring(volume) + L"windows", other = there + L"2";
    for (const wchar_t* path :
         {L"Z:/", L"C:\\Windows\\System32", L"\\\\?\\C:\\windows", L"C:\\Windows\\aux\\f",
          L"\\\\?\\C:\\windows\\nul", L"\\\\server\\c$\\windows\\prn \\x", L"C:\\users\\nul",
          L"C:\\users\\somebody", L"C:\\Program Files", L"C:\\users\\somebody\\AppData\\",
          L"C:\\users\\somebody\\appdata\\Roaming", L"C:\\Program Files\\Common Files",
          // Roots and what may be one; the last is mounted nowhere.
          L"C:\\", L"\\\\server\\share", L"C:\\Windows::$INDEX_ALLOCATION",
          L"C:\\users:$I30:$INDEX_ALLOCATION\\somebody", L"C:\\Program Files. .", L"\\\\server\\c$\\Users",
          L"\\\\?\\UNC\\server\\ADMIN$\\system32", L"\\\\server\\c$. \\Users", L"Q:\\... ",
          L"C:\\:$I30:$INDEX_ALLOCATION", L"\\\\?\\GLOBALROOT\\DosDevices\\C:\\x", there.c_str(),
          L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789ABCDEF}\\x"})
        EXPECT_EQ(asNumber(PathIsProtected)(path), 1) << utf8(path);
    for (const wchar_t* path :
         {L"C:\\users\\somebody\\file", L"C:\\Program Files\\thing", L"C:\\windows2",
          L"C:\\users\\somebody\\AppData\\Local\\Temp", L"\\\\server\\share\\users", other.c_str()})
        EXPECT_EQ(asNumber(PathIsProtected)(path), 0) << utf8(path);
    const std::wstring longest(255, L'x'), longer(256, L'x');
    for (const wchar_t* name : {L"a b.txt", longest.c_str()})
        EXPECT_EQ(asNumber(PathIsValidFileName)(name), 1);
    for (const wchar_t* name : {L"a.", L"a ", L"COM1.txt", L"a\x1f", L"", L"..", L"a:b", longer.c_str()})
        EXPECT_EQ(asNumber(PathIsValidFileName)(name), 0) << utf8(name);
}

TEST(Paths, MakeUniqueAndTwins)
{
    const auto unique = [](auto* end) { return asText(PathMakeUnique)(L"C:\\windows", L"u18", end); };
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
    EXPECT_EQ(asText(PathNormalizeA)(umlaut.c_str()), utf8(L"C:\\ü\\x.ö"));
    EXPECT_EQ(asText(PathParentA)("\xff\\a"), "code 1113");
    // The expanders of macros tell what they need, and leave a buffer that is too small as it was.
    const auto expand = [](auto& validator, auto path, const auto& expanded) {
        unsigned long needed = 0;
        const auto before = path;
        for (const unsigned long size : {0UL, 12UL})
            EXPECT_EQ(std::tuple(validator.validate(path.data(), size, &needed), needed, path),
                      std::tuple(234, 12UL, before));
        EXPECT_EQ(validator.validate(path.data(), 12, nullptr), 234);
        EXPECT_EQ(validator.validate(path.data(), 13, nullptr), 0);
        EXPECT_EQ(path.data(), expanded);
        EXPECT_EQ(validator.validate(path.data(), 64, &needed), 1168);
        EXPECT_EQ(validator.validate(nullptr, 64, &needed), 87);
    };
    expand(*DllGetPathValidatorA(), std::array<char, 64>{"%windir%\\x"}, std::string("C:\\windows\\x"));
    expand(*DllGetPathValidatorW(), std::array<wchar_t, 64>{L"%windir%\\x"}, std::wstring(L"C:\\windows\\x"));
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
    const std::pair<std::string, std::wstring> rows[] = {
        {data(IO_REPARSE_TAG_MOUNT_POINT, L"\\??\\C:\\there", 0), L"C:\\there"},
        {data(IO_REPARSE_TAG_MOUNT_POINT, L"\\??\\Volume{1}\\", 0), L"\\\\?\\Volume{1}\\"},
        {data(IO_REPARSE_TAG_SYMLINK, L"..\\there", 0), L"..\\there"},
        {data(IO_REPARSE_TAG_SYMLINK, L"x", 2), L"code 4392"},
        {data(0x80000013, L"x", 0), L"code 4394"},
        {"abc", L"code 4392"}};
    const auto target = asText(PathReadLinkTarget);
    Replaced<"DeviceIoControl", decltype(&DeviceIoControl)> control;
    for (const auto& row : rows) {
        control.setHook([&](auto, HANDLE, DWORD, void*, DWORD, void* answer, DWORD, DWORD* size, auto) {
            std::memcpy(answer, row.first.data(), row.first.size());
            *size = static_cast<DWORD>(row.first.size());
            return TRUE;
        });
        EXPECT_EQ(target(L"C:\\windows"), row.second);
    }
    control.setHook(nullptr);
    EXPECT_EQ(target(L"C:\\not there"), L"code 2");
    int is = 7;
    unsigned long tag = 7;
    EXPECT_EQ(PathIsReparsePoint(L"C:\\windows\\", &is, &tag), 0);
    EXPECT_EQ(is + static_cast<int>(tag), 0);
}
