#include "boundary/RegistryTest.h"

// Deletions and writes affect the named key, in any form of its name, and no other.

using RegistrySafety = Registry;

namespace {
/// Creates nested keys until their path has `length` characters, and opens the last.
HKEY makeChain(std::wstring& path, std::size_t length)
{
    HKEY key = nullptr;
    RegOpenKeyW(HKEY_CURRENT_USER, path.c_str(), &key);
    while (path.size() < length) {
        std::size_t size = std::min<std::size_t>(255, length - path.size() - 1);
        if (length - path.size() - 1 - size == 1)
            --size; // a backslash alone is left otherwise
        const HKEY parent = key;
        EXPECT_EQ(RegCreateKeyW(parent, std::wstring(size, L'k').c_str(), &key), ERROR_SUCCESS);
        RegCloseKey(parent);
        path.append(1, L'\\').append(size, L'k');
    }
    return key;
}

const std::wstring kClass = L"sysmaint-test";
const std::wstring kClasses = L"Software\\Classes\\";

HKEY merged(HKEY key)
{
    return reinterpret_cast<HKEY>(reinterpret_cast<std::intptr_t>(key) | 2); // the kernel ignores it
}

/// The path of a merged key in either hive, or nothing.
std::wstring pathOf(HKEY key)
{
    const auto number = reinterpret_cast<std::intptr_t>(key);
    const std::wstring name = number > 0 && (number & 2) != 0 ? keyName(key) : L"";
    return key == HKEY_CLASSES_ROOT ? kClasses
           : name.empty()           ? L""
                                    : L"Software" + name.substr(name.find(L"\\Classes")) + L"\\";
}

/// HKEY_CLASSES_ROOT as the system merges it: a key is opened in the user's hive or else in the machine's,
/// and its handle, which is marked, lists the sub-keys of both.
struct MergedClasses
{
    Replaced<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> opens{
        [](auto original, HKEY key, LPCWSTR path, auto options, auto access, PHKEY opened) {
            const std::wstring below = pathOf(key) + path;
            if (below == path)
                return original(key, path, options, access, opened);
            LSTATUS status = original(HKEY_CURRENT_USER, below.c_str(), options, access, opened);
            if (status != ERROR_SUCCESS)
                status = original(HKEY_LOCAL_MACHINE, below.c_str(), options, access, opened);
            *opened = status == ERROR_SUCCESS ? merged(*opened) : nullptr;
            return status;
        }};
    Replaced<"RegEnumKeyExW", decltype(&RegEnumKeyExW)> lists{
        [](auto original, HKEY key, DWORD index, auto... rest) {
            const std::wstring path = pathOf(key);
            LSTATUS status = path.empty() ? original(key, index, rest...) : ERROR_NO_MORE_ITEMS;
            for (const HKEY hive : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
                HKEY part = nullptr;
                DWORD count = 0;
                if (status != ERROR_NO_MORE_ITEMS || path.empty() ||
                    RegOpenKeyW(hive, path.c_str(), &part) != ERROR_SUCCESS)
                    continue;
                status = original(part, index, rest...);
                RegQueryInfoKeyW(part, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr);
                index -= count;
                RegCloseKey(part);
            }
            return status;
        }};
};

/// What a state of the tests' class may consist of: a letter, a key and, if it is one, the value's name.
const std::tuple<char, std::wstring, const wchar_t*> kParts[] = {
    {'k', kClasses + kClass, nullptr},
    {'c', kClasses + kClass + L"\\c\\deep", nullptr},
    {'n', kClasses + kClass + L"\\n\\deep", nullptr},
    {'v', kClasses + kClass, L"v"},
    {'w', kClasses + kClass, L"w"}};

void makeClass(HKEY hive, const std::string& state)
{
    RegDeleteTreeW(hive, (kClasses + kClass).c_str());
    for (const auto& [letter, path, value] : kParts) {
        HKEY key = nullptr;
        if (state.find(letter) == std::string::npos)
            continue;
        EXPECT_EQ(RegCreateKeyW(hive, path.c_str(), &key), ERROR_SUCCESS);
        if (value != nullptr)
            RegSetValueExW(key, value, 0, REG_SZ, nullptr, 0);
        RegCloseKey(key);
    }
}

std::string classState(HKEY hive)
{
    std::string state;
    for (const auto& [letter, path, value] : kParts)
        if (value == nullptr ? hasKey(hive, path) : hasValue(hive, path, value))
            state += letter;
    return state;
}

// What the user's and the machine's hive hold before an operation, its code, and what they hold then.
using ClassRows = std::vector<std::tuple<const char*, const char*, unsigned long, const char*, const char*>>;
const std::pair<const char*, ClassRows> kClassRows[] = {
    {"key", {{"kcv", "", 0, "", ""}, {"", "kcv", 0, "", ""}, {"", "", 2, "", ""}}},
    {"key", {{"k", "kcv", 50, "k", "kcv"}, {"kcv", "kcv", 50, "kcv", "kcv"}}},
    {"backslashes", {{"kcv", "kcv", 50, "kcv", "kcv"}, {"", "kcv", 0, "", ""}}},
    {"own handle", {{"kcv", "kcv", 0, "", "kcv"}}},
    {"nobody logged on", {{"kcv", "kcv", 0, "kcv", ""}}},
    {"value", {{"kcv", "kc", 0, "kc", "kc"}, {"kc", "kcv", 0, "kc", "kc"}, {"", "kcv", 0, "", "kc"}}},
    {"value", {{"kcv", "kcv", 50, "kcv", "kcv"}, {"kc", "kc", 2, "kc", "kc"}}},
    {"found value", {{"kcv", "k", 0, "kc", "k"}}},
    {"set", {{"k", "k", 0, "kw", "k"}, {"k", "", 0, "kw", ""}, {"", "k", 0, "", "kw"}, {"", "", 2, "", ""}}},
    {"create", {{"k", "k", 0, "kn", "k"}, {"k", "", 0, "kn", ""}, {"", "k", 0, "", "kn"}}},
    {"create", {{"", "", 0, "", "kn"}}}};
} // namespace

TEST_F(RegistrySafety, PathsLongerThanOneCallTakes)
{
    // Of the parent: around the longest step, around what one call takes, around 65,536 and 131,072.
    for (const std::size_t length : {16376, 16377, 16378, 32757, 32758, 32759, 32760, 32766, 32767, 32768,
                                     49155, 65529, 65530, 65536, 65540, 131072}) {
        SCOPED_TRACE(length);
        RegDeleteTreeW(root, nullptr);
        std::wstring path = kRoot;
        const HKEY parent = makeChain(path, length);
        ASSERT_EQ(path.size(), length);
        for (const wchar_t* key : {static_cast<const wchar_t*>(nullptr), L"twin", L"found"})
            RegSetKeyValueW(parent, key, L"v", REG_BINARY, "old", 3);
        const std::wstring leaf = path + L"\\victim";

        EXPECT_EQ(keyOf(leaf)->exists(), 0);
        EXPECT_EQ(codeOf([&] { keyOf(leaf)->deleteItem(); }), ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(codeOf([&] { valueOf(leaf, L"v")->deleteItem(); }), ERROR_FILE_NOT_FOUND);
        keyOf(leaf + L"\\below")->create();
        EXPECT_TRUE(hasKey(parent, L"victim\\below"));
        valueOf(leaf, L"v")->setValue(REG_BINARY, "new", 3);
        EXPECT_NE(keyOf(leaf)->exists(), 0);
        EXPECT_TRUE(dataOf(*valueOf(leaf, L"v")) == "new" && dataOf(*valueOf(path, L"v")) == "old");
        valueOf(leaf, L"v")->deleteItem();
        EXPECT_EQ(valueOf(leaf, L"v")->exists(), 0);

        const SharedPtr<ScanItem> found = find(L"\\found");
        for (const wchar_t* name : {L"\\victim\\below", L"\\twin\\v", L"\\found\\v", L"\\v"})
            EXPECT_EQ(collector.paths[std::wstring(L"HKEY_CURRENT_USER\\").append(path).append(name)], 1);
        ASSERT_TRUE(found);
        dynamic_cast<IRegistryKey&>(*found).deleteItem();
        EXPECT_TRUE(!hasKey(parent, L"found") && hasKey(parent, L"victim\\below"));
        keyOf(leaf + L"\\")->deleteItem();
        EXPECT_TRUE(!hasKey(parent, L"victim") && hasKey(parent, L"twin") && hasValue(parent, L"", L"v"));
        RegCloseKey(parent);
    }
}

TEST_F(RegistrySafety, NamesThatTheRegistryDoesNotTake)
{
    const std::wstring longKey(255, L'k');
    const std::wstring longValue(16383, L'v');
    addKey(longKey + L"\\below");
    addValue(longValue);
    const std::wstring longest = kRoot + L"\\" + longKey;
    EXPECT_NE(keyOf(longest + L"\\below")->exists(), 0);
    const std::pair<std::wstring, std::wstring> rows[] = {
        {longest + L"k", L"v"},
        {longest + L"k\\below", L"v"},
        {std::wstring(longest).append(L"\\").append(300, L'k'), L"v"},
        {std::wstring(40000, L'k'), L"v"},
        {kRoot + L"\\" + std::wstring(70000, L'k'), L"v"},
        {kRoot, std::wstring(16384, L'v')},
        {kRoot, std::wstring(32767, L'v')},
        {kRoot, std::wstring(65536 + 16383, L'v')}};
    for (const auto& row : rows) {
        const KeyPtr key = keyOf(row.first);
        const ValuePtr value = valueOf(row.first, row.second);
        const std::vector<std::function<void()>> operations = {
            [&] { value->create(); },       [&] { value->setValue(REG_SZ, L"", 2); },
            [&] { value->deleteItem(); },   [&] { return value->exists(); },
            [&] { return dataOf(*value); }, [&] { return value->getValueType(); },
            [&] { key->create(); },         [&] { key->deleteItem(); },
            [&] { return key->exists(); }};
        for (std::size_t i = 0; i < (row.first == kRoot ? 6 : operations.size()); ++i)
            EXPECT_EQ(codeOf(operations[i]), ERROR_FILENAME_EXCED_RANGE) << row.first.size() << ": " << i;
        EXPECT_TRUE(row.first == kRoot || scan(row.first, 1) == ERROR_FILENAME_EXCED_RANGE);
    }
    EXPECT_TRUE(hasKey(root, longKey + L"\\below") && hasValue(root, L"", longValue.c_str()));

    // Any number of backslashes counts as one; alone they name nothing.
    const std::wstring backslashes(40000, L'\\');
    addKey(L"a\\b");
    keyOf(kRoot + L"\\a" + backslashes + L"b" + backslashes)->deleteItem();
    EXPECT_TRUE(hasKey(root, L"a") && !hasKey(root, L"a\\b"));
    EXPECT_EQ(codeOf([&] { keyOf(backslashes, root)->deleteItem(); }), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(codeOf([&] { return keyOf(backslashes, root)->exists(); }), ERROR_BAD_PATHNAME);
}

TEST_F(RegistrySafety, ClassesAreChangedInTheHiveThatHoldsThem)
{
    const MergedClasses view;
    HKEY classes = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, L"Software\\Classes", &classes), ERROR_SUCCESS);
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
        if (std::wstring_view(item->getPath()).ends_with(L"\\v"))
            dynamic_cast<IRegistryValue&>(*item).deleteItem();
    };
    const std::map<std::string, std::function<void()>> operations = {
        {"key", [] { keyOf(kClass, HKEY_CLASSES_ROOT)->deleteItem(); }},
        {"backslashes", [] { keyOf(L"\\" + kClass + L"\\", HKEY_CLASSES_ROOT)->deleteItem(); }},
        {"own handle", [&] { keyOf(kClass, merged(classes))->deleteItem(); }},
        {"value", [] { valueOf(kClass, L"v", HKEY_CLASSES_ROOT)->deleteItem(); }},
        {"set", [] { valueOf(kClass, L"w", HKEY_CLASSES_ROOT)->setValue(REG_SZ, L"", 2); }},
        {"create", [] { keyOf(kClass + L"\\n\\deep", HKEY_CLASSES_ROOT)->create(); }},
        {"nobody logged on",
         [] {
             Replaced<"WTSGetActiveConsoleSessionId", decltype(&WTSGetActiveConsoleSessionId)> sessions(
                 1, 0xFFFFFFFF, 0);
             keyOf(kClass, HKEY_CLASSES_ROOT)->deleteItem();
         }},
        {"found value", [&] {
             RSEngineAddPath(engine, HKEY_CLASSES_ROOT, kClass.c_str());
             EXPECT_EQ(scanAdded(), ERROR_SUCCESS);
         }}};
    for (const auto& [name, rows] : kClassRows)
        for (const auto& [user, machine, code, userAfter, machineAfter] : rows) {
            SCOPED_TRACE(testing::Message() << name << ": " << user << ", " << machine);
            makeClass(HKEY_CURRENT_USER, user);
            makeClass(HKEY_LOCAL_MACHINE, machine);
            EXPECT_TRUE(codeOf(operations.at(name)) == code && classState(HKEY_CURRENT_USER) == userAfter);
            EXPECT_EQ(classState(HKEY_LOCAL_MACHINE), machineAfter);
        }
    for (const HKEY hive : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE})
        makeClass(hive, "");
    RegCloseKey(classes);
}

// Opening these keys returns a predefined handle, which stands for something else.
TEST_F(RegistrySafety, KeysThatStandForPerformanceData)
{
    addKey(L"perf\\009", L"perf\\other");
    Replaced<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> opens(
        [](auto original, HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY opened) {
            if (!std::wstring_view(path).ends_with(L"009"))
                return original(key, path, options, access, opened);
            *opened = HKEY_PERFORMANCE_TEXT;
            return static_cast<LSTATUS>(ERROR_SUCCESS);
        });
    Replaced<"RegCloseKey", decltype(&RegCloseKey)> closes([](auto original, HKEY key) {
        EXPECT_NE(key, HKEY_PERFORMANCE_TEXT);
        return original(key);
    });
    EXPECT_EQ(scan(), ERROR_SUCCESS);
    expectFound({L"perf", L"perf\\009", L"perf\\other"});
    const std::wstring path = kRoot + L"\\perf\\009";
    EXPECT_EQ(scan(path), ERROR_SUCCESS);
    for (const unsigned long code :
         {codeOf([&] { keyOf(path)->deleteItem(); }), codeOf([] { keyOf(kRoot + L"\\perf")->deleteItem(); }),
          codeOf([&] { valueOf(path, L"v")->deleteItem(); }), codeOf([&] { valueOf(path, L"v")->create(); })})
        EXPECT_EQ(code, ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(hasKey(root, L"perf\\009"));

    // The system's own, and the whole hive that they are in; a whole hive is no stand-in.
    const std::wstring real = L"Software\\Microsoft\\Windows NT\\CurrentVersion\\Perflib";
    opens.setHook(nullptr);
    RSEngineAddPath(engine, HKEY_LOCAL_MACHINE, real.c_str());
    RSEngineAddPath(engine, HKEY_LOCAL_MACHINE, L"");
    EXPECT_EQ(scanAdded(3), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths[L"HKEY_LOCAL_MACHINE\\" + real + L"\\009"], 1);
    EXPECT_EQ(collector.paths[L"HKEY_LOCAL_MACHINE\\Software\\Microsoft"], 1);
}
