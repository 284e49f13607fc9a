#include "boundary/RegistryTest.h"

// What deletes and writes goes to the key that was named, however it was named, and to no other.

namespace {
void setValueOf(HKEY key, const wchar_t* name, const wchar_t* text)
{
    RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                   static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(wchar_t)));
}

bool hasKey(HKEY parent, const std::wstring& name)
{
    HKEY key = nullptr;
    const LSTATUS status = RegOpenKeyExW(parent, name.c_str(), REG_OPTION_OPEN_LINK, KEY_READ, &key);
    if (status == ERROR_SUCCESS)
        RegCloseKey(key);
    return status == ERROR_SUCCESS;
}

bool hasValue(HKEY key, const wchar_t* name)
{
    return RegQueryValueExW(key, name, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

/// Keys one below the other, made one by one, so that their path has `length` characters.
class KeyChain
{
public:
    KeyChain(HKEY root, std::size_t length) : path(kRoot)
    {
        RegOpenKeyW(root, nullptr, &handle);
        while (path.size() < length) {
            std::size_t name = std::min<std::size_t>(255, length - path.size() - 1);
            if (length - path.size() - 1 - name == 1)
                --name; // a backslash alone is left otherwise
            HKEY next = nullptr;
            EXPECT_EQ(RegCreateKeyW(handle, std::wstring(name, L'k').c_str(), &next), ERROR_SUCCESS);
            path.append(1, L'\\').append(name, L'k');
            RegCloseKey(handle);
            handle = next;
        }
    }
    KeyChain(const KeyChain&) = delete;
    KeyChain& operator=(const KeyChain&) = delete;
    ~KeyChain() { RegCloseKey(handle); }

    std::wstring path;
    HKEY handle = nullptr;
};

ValuePtr valueOf(const std::wstring& path, const wchar_t* name)
{
    return ValuePtr(DllGetRegistryValue(HKEY_CURRENT_USER, path.c_str(), name));
}

KeyPtr keyOf(const std::wstring& path, HKEY root = HKEY_CURRENT_USER)
{
    return KeyPtr(DllGetRegistryKey(root, path.c_str()));
}
} // namespace

TEST(RegistrySafety, PathsLongerThanOneCallTakes)
{
    // Of the parent: around the longest step, around what one call takes, around 65,536 and 131,072.
    const std::size_t lengths[] = {16376, 16377, 16378, 32757, 32758, 32759, 32760, 32766,
                                   32767, 32768, 49155, 65529, 65530, 65536, 65540, 131072};
    for (const std::size_t length : lengths) {
        SCOPED_TRACE(length);
        const TestKey root;
        const KeyChain parent(root.handle, length);
        ASSERT_EQ(parent.path.size(), length);
        setValueOf(parent.handle, L"v", L"parent's");
        for (const wchar_t* name : {L"twin", L"found"})
            RegSetKeyValueW(parent.handle, name, L"v", REG_SZ, L"its own", 16);
        const std::wstring leaf = parent.path + L"\\victim";

        EXPECT_EQ(keyOf(leaf)->exists(), 0);
        EXPECT_EQ(codeOf([&] { keyOf(leaf)->deleteItem(); }), ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(codeOf([&] { valueOf(leaf, L"v")->deleteItem(); }), ERROR_FILE_NOT_FOUND);
        EXPECT_TRUE(hasValue(parent.handle, L"v"));
        keyOf(leaf + L"\\below")->create();
        EXPECT_TRUE(hasKey(parent.handle, L"victim\\below"));
        valueOf(leaf, L"v")->setValue(REG_SZ, L"leaf's", 14);
        EXPECT_NE(keyOf(leaf)->exists(), 0);
        unsigned long size = 0;
        EXPECT_STREQ(static_cast<const wchar_t*>(valueOf(leaf, L"v")->getData(size)), L"leaf's");
        EXPECT_STREQ(static_cast<const wchar_t*>(valueOf(parent.path, L"v")->getData(size)), L"parent's");
        valueOf(leaf, L"v")->deleteItem();
        EXPECT_EQ(valueOf(leaf, L"v")->exists(), 0);

        Collector collector;
        const TestRegistryEngine engine(collector);
        SharedPtr<ScanItem> found;
        collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
            if (std::wstring_view(item->getPath()).ends_with(L"\\found"))
                found = item;
        };
        ASSERT_EQ(engine.scan(), ERROR_SUCCESS);
        const std::wstring full = L"HKEY_CURRENT_USER\\" + parent.path;
        for (const wchar_t* name : {L"\\victim\\below", L"\\twin\\v", L"\\found\\v", L"\\v"})
            EXPECT_EQ(collector.paths[full + name], 1) << name;
        ASSERT_TRUE(found);
        dynamic_cast<IRegistryKey&>(*found).deleteItem();
        EXPECT_FALSE(hasKey(parent.handle, L"found"));
        EXPECT_TRUE(hasKey(parent.handle, L"victim\\below"));
        keyOf(leaf + L"\\")->deleteItem();
        EXPECT_FALSE(hasKey(parent.handle, L"victim"));
        EXPECT_TRUE(hasKey(parent.handle, L"twin"));
        EXPECT_TRUE(hasValue(parent.handle, L"v"));
    }

    // Backslashes count as one, however many there are; alone they name nothing.
    const TestKey root;
    root.addKey(L"a\\b");
    keyOf(kRoot + L"\\a" + std::wstring(40000, L'\\') + L"b" + std::wstring(40000, L'\\'))->deleteItem();
    EXPECT_TRUE(hasKey(root.handle, L"a"));
    EXPECT_FALSE(hasKey(root.handle, L"a\\b"));
    const std::wstring nothing(40000, L'\\');
    EXPECT_EQ(codeOf([&] { keyOf(nothing, root.handle)->deleteItem(); }), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(codeOf([&] { static_cast<void>(keyOf(nothing, root.handle)->exists()); }), ERROR_BAD_PATHNAME);
}

TEST(RegistrySafety, NamesThatTheRegistryDoesNotTake)
{
    const TestKey root;
    root.addKey(std::wstring(255, L'k') + L"\\below");
    root.addValue(std::wstring(16383, L'v'));
    const std::wstring longest = kRoot + L"\\" + std::wstring(255, L'k');
    EXPECT_NE(keyOf(longest + L"\\below")->exists(), 0);
    for (const std::wstring& path :
         {longest + L"k", longest + L"k\\below", std::wstring(longest).append(L"\\").append(300, L'k'),
          std::wstring(40000, L'k'), kRoot + L"\\" + std::wstring(70000, L'k')}) {
        const KeyPtr key = keyOf(path);
        const ValuePtr value = valueOf(path, L"v");
        for (const unsigned long code :
             {codeOf([&] { key->create(); }), codeOf([&] { key->deleteItem(); }),
              codeOf([&] { static_cast<void>(key->exists()); }), codeOf([&] { value->create(); }),
              codeOf([&] { value->deleteItem(); })})
            EXPECT_EQ(code, ERROR_FILENAME_EXCED_RANGE) << path.size();
        Collector collector;
        EXPECT_EQ(TestRegistryEngine(collector).scan(1, nullptr, path.c_str()), ERROR_FILENAME_EXCED_RANGE);
    }
    for (const std::size_t length : {16384, 32767, 65536 + 16383}) {
        const ValuePtr value = valueOf(kRoot, std::wstring(length, L'v').c_str());
        unsigned long size = 0;
        for (const unsigned long code :
             {codeOf([&] { value->create(); }), codeOf([&] { value->setValue(REG_SZ, L"", 2); }),
              codeOf([&] { value->deleteItem(); }), codeOf([&] { static_cast<void>(value->exists()); }),
              codeOf([&] { valueOf(kRoot, value->getName())->getData(size); }),
              codeOf([&] { static_cast<void>(valueOf(kRoot, value->getName())->getValueType()); })})
            EXPECT_EQ(code, ERROR_FILENAME_EXCED_RANGE) << length;
    }
    EXPECT_TRUE(hasKey(root.handle, std::wstring(255, L'k') + L"\\below"));
    EXPECT_TRUE(hasValue(root.handle, std::wstring(16383, L'v').c_str()));

    // What an item shows is what it works on, also after a stream that ended too early.
    root.addKey(L"shown");
    const KeyPtr item = keyOf(kRoot + L"\\shown");
    EXPECT_EQ(item->getPath(), kFull + L"\\shown");
    MemoryOutputByteStream stored;
    keyOf(kRoot + L"\\other")->dump(kStateAll, stored);
    MemoryInputByteStream cut(stored.getData(), stored.getSize() - 5);
    EXPECT_EQ(codeOf([&] { item->load(kStateAll, cut); }), ERROR_READ_FAULT);
    EXPECT_EQ(item->exists(), item->getPath() == kFull + L"\\shown" ? 1 : 0);
}

namespace {
const std::wstring kClass = L"sysmaint-test";
const std::wstring kClasses = L"Software\\Classes\\";

bool isMerged(HKEY key)
{
    const auto number = reinterpret_cast<std::intptr_t>(key);
    return number > 0 && (number & 2) != 0;
}

HKEY merged(HKEY key)
{
    return reinterpret_cast<HKEY>(reinterpret_cast<std::intptr_t>(key) | 2); // the kernel does not look at it
}

/// HKEY_CLASSES_ROOT as it is where the system merges it: a key is opened in the user's hive or else in the
/// machine's, and its handle, a marked one, lists the sub-keys of both.
class MergedClasses
{
public:
    MergedClasses() : m_opens(sysmaintModule()), m_lists(sysmaintModule())
    {
        m_opens.setHook(
            [](auto original, HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY opened) {
                LSTATUS status = ERROR_FILE_NOT_FOUND;
                if (key == HKEY_CLASSES_ROOT) {
                    for (const HKEY hive : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE})
                        if (status != ERROR_SUCCESS)
                            status = original(hive, (kClasses + path).c_str(), options, access, opened);
                } else {
                    status = original(key, path, options, access, opened);
                    if (status != ERROR_SUCCESS && isMerged(key))
                        status = original(otherHive(key), (otherPath(key) + L"\\" + path).c_str(), options,
                                          access, opened);
                }
                if (status == ERROR_SUCCESS && (key == HKEY_CLASSES_ROOT || isMerged(key)))
                    *opened = merged(*opened);
                return status;
            });
        m_lists.setHook([](auto original, HKEY key, DWORD index, LPWSTR name, LPDWORD length, auto... rest) {
            LSTATUS status = original(key, index, name, length, rest...);
            HKEY other = nullptr;
            if (status == ERROR_NO_MORE_ITEMS && isMerged(key) &&
                RegOpenKeyW(otherHive(key), otherPath(key).c_str(), &other) == ERROR_SUCCESS) {
                DWORD count = 0;
                RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr);
                status = original(other, index - count, name, length, rest...);
                RegCloseKey(other);
            }
            return status;
        });
    }

private:
    static HKEY otherHive(HKEY key)
    {
        return keyName(key).find(L"\\Machine\\") != std::wstring::npos ? HKEY_CURRENT_USER
                                                                       : HKEY_LOCAL_MACHINE;
    }
    static std::wstring otherPath(HKEY key)
    {
        const std::wstring name = keyName(key);
        return L"Software" + name.substr(name.find(L"\\Classes"));
    }

    CountedImport<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> m_opens;
    CountedImport<"RegEnumKeyExW", decltype(&RegEnumKeyExW)> m_lists;
};

/// The tests' class in one hive, as letters: k the key, c and n sub-keys, v and w values.
void makeClass(HKEY hive, const std::string& state)
{
    RegDeleteTreeW(hive, (kClasses + kClass).c_str());
    for (const char letter : state) {
        const std::wstring name(1, static_cast<wchar_t>(letter));
        if (letter == 'v' || letter == 'w') {
            RegSetKeyValueW(hive, (kClasses + kClass).c_str(), name.c_str(), REG_SZ, L"", 2);
            continue;
        }
        HKEY key = nullptr;
        const std::wstring below = letter == 'k' ? L"" : L"\\" + name + L"\\deep";
        RegCreateKeyW(hive, std::wstring(kClasses).append(kClass).append(below).c_str(), &key);
        RegCloseKey(key);
    }
}

std::string classState(HKEY hive)
{
    HKEY key = nullptr;
    if (RegOpenKeyW(hive, (kClasses + kClass).c_str(), &key) != ERROR_SUCCESS)
        return "";
    std::string state = "k";
    if (hasKey(key, L"c\\deep"))
        state += 'c';
    if (hasKey(key, L"n"))
        state += 'n';
    for (const wchar_t* name : {L"v", L"w"})
        if (hasValue(key, name))
            state += static_cast<char>(*name);
    RegCloseKey(key);
    return state;
}
} // namespace

TEST(RegistrySafety, ClassesAreChangedInTheHiveThatHoldsThem)
{
    const TestKey root;
    const MergedClasses view;
    HKEY classes = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, L"Software\\Classes", &classes), ERROR_SUCCESS);
    const auto value = [](const wchar_t* name) {
        return ValuePtr(DllGetRegistryValue(HKEY_CLASSES_ROOT, kClass.c_str(), name));
    };
    const std::function<void()> deleteKey = [] { keyOf(kClass, HKEY_CLASSES_ROOT)->deleteItem(); };
    const std::function<void()> deleteSlashed = [] {
        keyOf(L"\\" + kClass + L"\\", HKEY_CLASSES_ROOT)->deleteItem();
    };
    const std::function<void()> deleteByHandle = [&] { keyOf(kClass, merged(classes))->deleteItem(); };
    const std::function<void()> deleteValue = [&] { value(L"v")->deleteItem(); };
    const std::function<void()> setValue = [&] { value(L"w")->setValue(REG_SZ, L"", 2); };
    const std::function<void()> createKey = [] { keyOf(kClass + L"\\n\\m", HKEY_CLASSES_ROOT)->create(); };
    const std::function<void()> deleteAlone = [&] {
        CountedImport<"WTSGetActiveConsoleSessionId", decltype(&WTSGetActiveConsoleSessionId)> sessions(
            sysmaintModule());
        sessions.failCall(1, 0xFFFFFFFF, 0);
        deleteKey();
    };
    const std::function<void()> deleteFound = [&] {
        Collector collector;
        collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
            if (std::wstring_view(item->getPath()).ends_with(L"\\v"))
                dynamic_cast<IRegistryValue&>(*item).deleteItem();
        };
        const TestRegistryEngine engine(collector);
        RSEngineAddPath(engine.handle, HKEY_CLASSES_ROOT, kClass.c_str());
        EXPECT_EQ(RSEngineScan(engine.handle, nullptr, everything(), {}), ERROR_SUCCESS);
    };
    const unsigned long both = ERROR_NOT_SUPPORTED;
    const unsigned long missing = ERROR_FILE_NOT_FOUND;
    const struct
    {
        const char* name;
        const std::function<void()>& operation;
        const char* user;
        const char* machine;
        unsigned long code;
        const char* userAfter;
        const char* machineAfter;
    } rows[] = {
        {"key", deleteKey, "kcv", "", 0, "", ""},
        {"key", deleteKey, "", "kcv", 0, "", ""},
        {"key", deleteKey, "k", "kcv", both, "k", "kcv"},
        {"key", deleteKey, "kcv", "kcv", both, "kcv", "kcv"},
        {"key", deleteKey, "", "", missing, "", ""},
        {"backslashes", deleteSlashed, "kcv", "kcv", both, "kcv", "kcv"},
        {"backslashes", deleteSlashed, "", "kcv", 0, "", ""},
        {"own handle", deleteByHandle, "kcv", "kcv", 0, "", "kcv"},
        {"nobody logged on", deleteAlone, "kcv", "kcv", 0, "kcv", ""},
        {"value", deleteValue, "kcv", "kc", 0, "kc", "kc"},
        {"value", deleteValue, "kc", "kcv", 0, "kc", "kc"},
        {"value", deleteValue, "", "kcv", 0, "", "kc"},
        {"value", deleteValue, "kcv", "kcv", both, "kcv", "kcv"},
        {"value", deleteValue, "kc", "kc", missing, "kc", "kc"},
        {"found value", deleteFound, "kcv", "k", 0, "kc", "k"},
        {"set", setValue, "k", "k", 0, "kw", "k"},
        {"set", setValue, "k", "", 0, "kw", ""},
        {"set", setValue, "", "k", 0, "", "kw"},
        {"set", setValue, "", "", missing, "", ""},
        {"create", createKey, "k", "k", 0, "kn", "k"},
        {"create", createKey, "k", "", 0, "kn", ""},
        {"create", createKey, "", "k", 0, "", "kn"},
        {"create", createKey, "", "", 0, "", "kn"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.name << ": " << row.user << ", " << row.machine);
        makeClass(HKEY_CURRENT_USER, row.user);
        makeClass(HKEY_LOCAL_MACHINE, row.machine);
        EXPECT_EQ(codeOf(row.operation), row.code);
        EXPECT_EQ(classState(HKEY_CURRENT_USER), row.userAfter);
        EXPECT_EQ(classState(HKEY_LOCAL_MACHINE), row.machineAfter);
    }
    for (const HKEY hive : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE})
        makeClass(hive, "");
    RegCloseKey(classes);
}

// Keys whose opening gives a handle of everybody's, which stands for something else.
TEST(RegistrySafety, KeysThatStandForPerformanceData)
{
    const TestKey root;
    root.addKey(L"perf\\009");
    root.addKey(L"perf\\other");
    CountedImport<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> opens(sysmaintModule());
    opens.setHook([](auto original, HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY opened) {
        if (!std::wstring_view(path).ends_with(L"009"))
            return original(key, path, options, access, opened);
        *opened = HKEY_PERFORMANCE_TEXT;
        return static_cast<LSTATUS>(ERROR_SUCCESS);
    });
    CountedImport<"RegCloseKey", decltype(&RegCloseKey)> closes(sysmaintModule());
    closes.setHook([](auto original, HKEY key) {
        EXPECT_NE(key, HKEY_PERFORMANCE_TEXT);
        return original(key);
    });
    Collector collector;
    const TestRegistryEngine engine(collector);
    EXPECT_EQ(engine.scan(), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths.size(), 3U);
    const std::wstring path = kRoot + L"\\perf\\009";
    EXPECT_EQ(engine.scan(9, nullptr, path.c_str()), ERROR_SUCCESS);
    for (const unsigned long code :
         {codeOf([&] { keyOf(path)->deleteItem(); }), codeOf([&] { keyOf(kRoot + L"\\perf")->deleteItem(); }),
          codeOf([&] { valueOf(path, L"v")->deleteItem(); }), codeOf([&] { valueOf(path, L"v")->create(); })})
        EXPECT_EQ(code, ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(hasKey(root.handle, L"perf\\009"));

    // The system's own, and the whole hive that they are in; a whole hive is no stand-in.
    const wchar_t* const real = L"Software\\Microsoft\\Windows NT\\CurrentVersion\\Perflib";
    opens.setHook(nullptr);
    RSEngineClear(engine.handle);
    RSEngineAddPath(engine.handle, HKEY_LOCAL_MACHINE, real);
    RSEngineAddPath(engine.handle, HKEY_LOCAL_MACHINE, L"");
    ScanOptions options;
    options.depthGiven = 1;
    options.depth = 3;
    collector.paths.clear();
    EXPECT_EQ(RSEngineScan(engine.handle, nullptr, everything(), options), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths[std::wstring(L"HKEY_LOCAL_MACHINE\\") + real + L"\\009"], 1);
    EXPECT_EQ(collector.paths[L"HKEY_LOCAL_MACHINE\\Software\\Microsoft"], 1);
}
