#include "support/Links.h"
#include "support/Utilities.h"

namespace {
constexpr wchar_t kTop[] = L"Software\\sysmaint-u18";
const HKEY kUser = HKEY_CURRENT_USER;

struct Registry : testing::Test
{
    Registry() { RegistryDeleteTree(kUser, kTop, 0); }
    ~Registry() override { RegistryDeleteTree(kUser, kTop, 0); }
};

const auto key = [](const wchar_t* name) { return std::wstring(kTop) + L"\\" + name; };
/// Writes raw data, without adding a terminator.
void put(const wchar_t* sub, const wchar_t* name, DWORD type, const std::wstring& data, size_t odd = 0)
{
    EXPECT_EQ(RegistryWriteBinary(kUser, key(sub).c_str(), name, 0, data.data(), data.size() * 2 - odd, type),
              0);
}
std::wstring read(const wchar_t* name, int expand = 0)
{
    return asText(RegistryReadString)(kUser, key(L"a").c_str(), name, 0, expand);
}
const auto exists = [](const wchar_t* of) { return asNumber(RegistryKeyExists)(kUser, key(of).c_str(), 0); };
const std::wstring kIn = testPath(L"in.reg");
long import(const std::wstring& text)
{
    const std::wstring all = L"\xFEFF" + text;
    EXPECT_EQ(FileWriteAtomically(kIn.c_str(), all.data(), all.size() * 2), 0);
    return RegistryImportText(kIn.c_str(), 0);
}
} // namespace

TEST_F(Registry, ValuesOfEveryShape)
{
    unsigned long type = 0;
    Given<unsigned char> bytes;
    size_t count = 0;
    const std::wstring a = key(L"a");
    const std::wstring longer(100000, L'x');
    // The name, the type, the data as it stands there, whether it is expanded, and the text.
    const std::tuple<const wchar_t*, DWORD, std::wstring, int, std::wstring> rows[] = {
        {L"ended", REG_SZ, std::wstring(L"text\0", 5), 0, L"text"},
        {L"ended", REG_SZ, std::wstring(L"text\0", 5), 1, L"text"},
        {L"open", REG_SZ, L"text", 0, L"text"},
        {L"more", REG_SZ, std::wstring(L"text\0x\0", 7), 0, L"text"},
        {L"none", REG_SZ, L"", 0, L""},
        {L"var", REG_EXPAND_SZ, L"%windir%\\x", 0, L"%windir%\\x"},
        {L"var", REG_EXPAND_SZ, L"%windir%\\x", 1, L"C:\\windows\\x"},
        {L"long var", REG_EXPAND_SZ, longer + L"%windir%", 1, longer + L"C:\\windows"},
        {L"list", REG_MULTI_SZ, std::wstring(L"a\0bc\0\0d\0", 8), 0, L"code 1630"},
        {L"", REG_SZ, L"unnamed", 0, L"unnamed"},
        {L"long", REG_SZ, longer, 0, longer}};
    for (const auto& [name, kind, data, expand, text] : rows) {
        put(L"a", name, kind, data);
        EXPECT_EQ(read(name, expand), text) << utf8(name);
    }
    put(L"a", L"odd", REG_SZ, L"text", 1);
    EXPECT_EQ(read(L"odd"), L"tex");
    EXPECT_EQ(read(L"not there"), L"code 2");
    put(L"a", L"tail", REG_MULTI_SZ, L"a");
    for (const auto& [name, text] :
         {std::pair(L"list", std::wstring(L"a\0bc\0\0", 6)), {L"tail", std::wstring(L"a\0\0", 3)}}) {
        Given<wchar_t> list;
        EXPECT_EQ(RegistryReadMultiString(kUser, a.c_str(), name, 0, &list, &count), 0);
        EXPECT_EQ(std::wstring(list.get(), text.size()), text);
        EXPECT_EQ(count, text.size() / 3);
    }
    EXPECT_EQ(RegistryReadBinary(kUser, a.c_str(), L"odd", 0, &bytes, &count, &type), 0);
    EXPECT_EQ(count * 10 + type, 71U);
    for (const auto& [view, kind, code] : {std::tuple(0U, REG_BINARY, 87), {7, REG_SZ, 87}, {64, REG_SZ, 0}})
        EXPECT_EQ(RegistryWriteString(kUser, a.c_str(), L"s", view, L"x", kind), code);
    EXPECT_EQ(read(L"s"), L"x");
    EXPECT_EQ(asText(RegistryTypeName)(REG_QWORD), L"REG_QWORD");
    EXPECT_EQ(asText(RegistryTypeName)(12), L"12");
}

TEST_F(Registry, NumbersAndWhatIsThere)
{
    const auto dword = asNumber(RegistryReadDword);
    const auto qword = asNumber(RegistryReadQword);
    const auto isThere = asNumber(RegistryValueExists);
    const std::wstring a = key(L"a");
    put(L"a", L"three", REG_DWORD, L"ab", 1);
    put(L"a", L"open", REG_SZ, L"text");
    EXPECT_EQ(dword(kUser, a.c_str(), L"three", 0), -13);
    EXPECT_EQ(dword(kUser, a.c_str(), L"open", 0), -1630);
    EXPECT_EQ(RegistryWriteDword(kUser, a.c_str(), L"d", 0, 0x80000001), 0);
    EXPECT_EQ(dword(kUser, a.c_str(), L"d", 0), 0x80000001);
    EXPECT_EQ(qword(kUser, a.c_str(), L"d", 0), -1630);
    EXPECT_EQ(RegistryWriteBinary(kUser, a.c_str(), L"q", 0, "12345678", 8, REG_QWORD), 0);
    EXPECT_EQ(qword(kUser, a.c_str(), L"q", 0), 0x3837363534333231);
    EXPECT_EQ(isThere(kUser, a.c_str(), L"open", 0), 1);
    for (const std::wstring& path : {a, a, key(L"no")})
        EXPECT_EQ(RegistryDeleteValueIfPresent(kUser, path.c_str(), L"open", 0), 0);
    EXPECT_EQ(isThere(kUser, a.c_str(), L"open", 0), 0);
    EXPECT_EQ(exists(L"a") * 10 + exists(L"b"), 10);
    unsigned long long now = 0, time = 0;
    GetSystemTimeAsFileTime(reinterpret_cast<FILETIME*>(&now));
    EXPECT_EQ(RegistryGetLastWrite(kUser, a.c_str(), 0, &time), 0);
    EXPECT_LT(now - time, 600000000U);
}

TEST_F(Registry, TreesAreCopiedExportedDeletedAndImported)
{
    for (const wchar_t* wrong : {L"", L"\\", L"\\\\"})
        EXPECT_EQ(RegistryDeleteTree(kUser, wrong, 0), 87);
    EXPECT_EQ(RegistryDeleteTree(HKEY_CLASSES_ROOT, L".u18", 0), 50);
    // As languages without sign extension write it.
    EXPECT_EQ(RegistryDeleteTree(reinterpret_cast<HKEY>(std::uintptr_t{0x80000000}), L".u18", 0), 50);
    EXPECT_EQ(RegistryDeleteTree(kUser, kTop, 0), 2);
    put(L"a", L"q\"uo\\te", REG_SZ, std::wstring(L"a\"b\\c\0", 6));
    put(L"a", L"", REG_SZ, std::wstring(L"unnamed\0", 8));
    put(L"a", L"lines", REG_SZ, std::wstring(L"a\r\nb\0", 5));
    put(L"a", L"open", REG_SZ, L"x");
    put(L"a\\b", L"bytes", REG_BINARY, std::wstring(60, L'\x1234'));
    put(L"a\\b\\[c]", L"empty", REG_MULTI_SZ, L"");
    put(L"a\\b\\d", L"odd", 0xfffffff0, L"xy", 1);
    EXPECT_EQ(RegistryWriteDword(kUser, key(L"a").c_str(), L"d", 0, 0xabcdef01), 0);
    // A copy below itself has the previous content; exporting, deleting and importing restores the same.
    EXPECT_EQ(RegistryCopyTree(kUser, key(L"a").c_str(), kUser, key(L"a\\copy").c_str(), 0), 0);
    EXPECT_EQ(exists(L"a\\copy\\b\\[c]") * 10 + exists(L"a\\copy\\copy"), 10);
    const auto exported = [](const wchar_t* name) {
        Given<unsigned char> bytes;
        size_t size = 0;
        EXPECT_EQ(RegistryExportText(kUser, kTop, 0, testPath(name).c_str()), 0);
        EXPECT_EQ(FileReadAll(testPath(name).c_str(), 1000000, &bytes, &size), 0);
        return std::wstring(reinterpret_cast<wchar_t*>(bytes.get()), size / 2);
    };
    const std::wstring before = exported(L"before.reg");
    EXPECT_NE(before.find(L"\"q\\\"uo\\\\te\"=\"a\\\"b\\\\c\"\r\n"), std::wstring::npos);
    EXPECT_NE(before.find(L"[HKEY_CURRENT_USER\\Software\\sysmaint-u18\\a\\b\\[c]]\r\n\"empty\"=hex(7):\r\n"),
              std::wstring::npos);
    EXPECT_NE(before.find(L"\"d\"=dword:abcdef01\r\n"), std::wstring::npos);
    EXPECT_EQ(RegistryDeleteTree(kUser, kTop, 0), 0);
    EXPECT_EQ(exists(L""), 0);
    EXPECT_EQ(RegistryImportText(testPath(L"before.reg").c_str(), 0), 0);
    EXPECT_EQ(exported(L"after.reg"), before);
    EXPECT_EQ(RegistryExportText(kUser, L"Software\\not there", 0, testPath(L"x.reg").c_str()), 2);
}

TEST_F(Registry, TextsAreTakenWholeOrNotAtAll)
{
    const std::wstring head =
        L"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Software\\sysmaint-u18\\i]\r\n";
    const std::wstring longKey(256, L'k');
    const std::wstring longName(16384, L'n');
    for (const std::wstring& wrong : std::vector<std::wstring>{
             L"[HKEY_CURRENT_USER\\" + longKey + L"]\r\n", L"\"" + longName + L"\"=\"x\"\r\n",
             std::wstring(L"\"a\0b\"=\"x\"\r\n", 11), std::wstring(L"[HKEY_CURRENT_USER\\a\0b]\r\n", 25),
             L"\"a\"=-\r\n", L"[-HKEY_CURRENT_USER\\x]\r\n", L"\"a\"=hex:0\r\n", L"\"a\"=hex:00,\r\n",
             L"\"a\"=hex:00,\\\r\n", L"\"a\"=hex(z):00\r\n", L"\"a\"=dword:\r\n",
             L"\"a\"=dword:123456789\r\n", L"\"a\"=\"b\r\n", L"\"a\"=\"b\"c\r\n", L"a=\"b\"\r\n",
             L"\"a\" \"b\"\r\n", L"\"a\\", L"[]\r\n", L"[HKXX\\a]\r\n"})
        EXPECT_EQ(import(std::wstring(head).append(L"\"first\"=\"x\"\r\n").append(wrong)),
                  wrong[3] == L'X' ? 161 : 13)
            << utf8(wrong);
    EXPECT_EQ(exists(L"i"), 0) << "nothing is written before all is read";
    EXPECT_EQ(import(L"REGEDIT4\r\n"), 13);
    EXPECT_EQ(import(head + L"\"symbolicLinkValue\"=hex(6):5c,00"), 13) << "a key that would pass for a link";
    EXPECT_EQ(import(head + L"; note\r\n@=\"x\"\r\n\"b\"=hex(2):61,00,\\\r\n  62,00"), 0);
    EXPECT_EQ(asText(RegistryReadString)(kUser, key(L"i").c_str(), L"b", 0, 0), L"ab");
}

TEST_F(Registry, LinksAndPaths)
{
    put(L"target\\inner", L"v", REG_SZ, L"x");
    const std::wstring link = key(L"tree\\link");
    EXPECT_EQ(RegistryWriteDword(kUser, key(L"tree").c_str(), L"d", 0, 1), 0);
    const std::wstring to = L"\\Registry\\User\\" + asText(SidOfCurrentUser)() + L"\\" + key(L"target");
    makeKeyLink(kUser, link, to);
    EXPECT_EQ(exists(L"tree\\link\\inner"), 1);
    // Functions that change keys follow no link anywhere in a path, and do not turn a key into one.
    put(L"source\\link\\inner", L"v", REG_SZ, L"y");
    EXPECT_EQ(RegistryDeleteTree(kUser, key(L"tree\\link\\inner").c_str(), 0), 681);
    EXPECT_EQ(asText(SecurityGetOwner)((L"HKCU\\" + link + L"\\inner").c_str(), 1), L"code 681");
    EXPECT_EQ(RegistryCopyTree(kUser, key(L"source").c_str(), kUser, key(L"tree").c_str(), 0), 681);
    EXPECT_EQ(RegistryCopyTree(kUser, key(L"tree").c_str(), kUser, key(L"source").c_str(), 0), 183);
    EXPECT_EQ(RegistryDeleteValueIfPresent(kUser, (link + L"\\inner").c_str(), L"v", 0), 681);
    EXPECT_EQ(import(L"Windows Registry Editor Version 5.00\r\n[HKEY_CURRENT_USER\\" + link +
                     L"\\inner]\r\n\"v\"=\"y\""),
              681);
    EXPECT_EQ(asText(RegistryReadString)(kUser, key(L"target\\inner").c_str(), L"v", 0, 0), L"x");
    EXPECT_EQ(RegistryCopyTree(kUser, key(L"tree").c_str(), kUser, key(L"copy").c_str(), 0), 0);
    EXPECT_EQ(RegistryDeleteTree(kUser, key(L"tree").c_str(), 0), 0);
    EXPECT_EQ(exists(L"tree") * 10 + exists(L"copy\\link\\inner"), 1);
    EXPECT_EQ(RegistryDeleteTree(kUser, key(L"copy\\link").c_str(), 0), 0);
    EXPECT_EQ(exists(L"copy") * 10 + exists(L"copy\\link"), 10);
    EXPECT_EQ(exists(L"target\\inner"), 1);
    EXPECT_EQ(asNumber(RegistryKeyExists)(HKEY_PERFORMANCE_DATA, L"", 0), -50);
}

TEST_F(Registry, TheSystemsLinksLeadOn)
{
    HKEY hive = nullptr;
    EXPECT_EQ(RegistryOpenUserHive(1, &hive) + RegCloseKey(hive), 0);
    const HKEY machine = HKEY_LOCAL_MACHINE;
    // A view is kept to on every step.
    for (const auto& [path, view] :
         {std::pair(L"Software\\Wow6432Node\\Classes\\u18", 0U), {L"Software\\u18", 32U}}) {
        EXPECT_EQ(RegistryWriteDword(machine, L"Software\\u18", L"d", 64, 1), 0);
        EXPECT_EQ(RegistryWriteDword(machine, path, L"d", view, 1), 0);
        EXPECT_EQ(RegistryDeleteTree(machine, path, view), 0);
        EXPECT_EQ(asNumber(RegistryKeyExists)(machine, path, view), 0);
        EXPECT_EQ(RegistryDeleteTree(machine, L"Software\\u18", 64), 0);
    }
}

TEST_F(Registry, PathsBeginWithARoot)
{
    HKEY root = nullptr;
    const auto parse = asText(RegistryParsePath);
    const auto format = asText(RegistryFormatPath);
    const std::tuple<const wchar_t*, HKEY, const wchar_t*> rows[] = {
        {L"HKLM\\a\\b", HKEY_LOCAL_MACHINE, L"a\\b"},
        {L"hkey_current_user", HKEY_CURRENT_USER, L""},
        {L"Computer\\HKEY_USERS\\x", HKEY_USERS, L"x"},
        {L"HKCR\\", HKEY_CLASSES_ROOT, L""},
        {L"HKEY_CURRENT_CONFIG\\x", HKEY_CURRENT_CONFIG, L"x"}};
    for (const auto& [text, key, rest] : rows) {
        EXPECT_EQ(parse(text, &root), rest);
        EXPECT_EQ(root, key);
    }
    for (const wchar_t* wrong : {L"", L"HKXX\\a", L"\\HKLM", L"HKLMx"})
        EXPECT_EQ(parse(wrong, &root), L"code 161");
    EXPECT_EQ(
        (Texts{format(HKEY_USERS, L"x"), format(HKEY_USERS, L""), format(reinterpret_cast<HKEY>(8), L"")}),
        (Texts{L"HKEY_USERS\\x", L"HKEY_USERS", L"code 6"}));
}
