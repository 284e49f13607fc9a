#include "Command.h"
#include "Console.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "OwnedHandle.h"
#include "OwnedText.h"
#include "RegistryData.h"

#include "core/win32/registry/offline/api.h"
#include "core/win32/registry/settingshive/api.h"
#include "core/win32/utils/paths/api.h"

namespace {
constexpr const wchar_t* kHelp = LR"(usage: sysmaint hive show FILE [KEY] [--json]
       sysmaint hive get FILE KEY NAME|--default [--json]
       sysmaint hive set FILE KEY NAME|--default DATA... [--type TYPE] [--yes]
       sysmaint hive delete FILE KEY [NAME|--default] [--yes]
       sysmaint hive compact FILE NEWFILE
       sysmaint hive salvage FILE NEWFILE [--json]

Reads and changes a registry hive file that no system has loaded. KEY is a path below the hive's root, "\"
the root itself; --default stands for the name of a key's unnamed value.

  show      the key with all that is below it, and its values
  get       one value
  set       makes or changes a value; missing keys are made. TYPE is sz (unless given), expand, multi (each
            DATA is one text), dword or qword (decimal, or 0x and hexadecimal digits), binary (hexadecimal
            digits)
  delete    a value, or without a name a key with all that is below it
  compact   writes the hive to a new file without the room that deleted keys and values have left
  salvage   writes what can still be read of a damaged hive to a new file, and tells what had to be left out;
            ends with 0 only if that was nothing, otherwise with 3

  --json    one JSON object a line
  --yes     do not ask before a value is replaced, or anything is deleted

set and delete write a new file and put it in the place of the old one in one step, unless another program has
changed that one meanwhile; it has the rights that its folder gives. A damaged hive is only salvaged. A hive that its system did not close is read without what
is in its logs alone, and changed only with --yes; the old file is kept as FILE.damaged. No file is replaced by compact and salvage.

example: sysmaint hive show C:\backup\SOFTWARE Microsoft\Windows
)";

int failed(const std::wstring& what, long code)
{
    std::wstring hint;
    if (code == ERROR_REGISTRY_CORRUPT)
        hint = L"; 'sysmaint hive salvage' reads what is left";
    else if (code == ERROR_FILE_INVALID)
        hint = L"; another program has changed the file meanwhile, and nothing was replaced";
    messages().writeLine(L"hive: " + printable(what) + L": " + formatCode(code) + hint);
    return kExitFailed;
}

/// The same for what is looked for in a hive: the file itself is there.
int failedInside(const std::wstring& what, long code)
{
    if (code != ERROR_FILE_NOT_FOUND)
        return failed(what, code);
    messages().writeLine(L"hive: " + printable(what) + L": there is no such key or value (2)");
    return kExitFailed;
}

std::wstring member(const wchar_t* name, std::wstring_view text)
{
    return jsonString(name) + L":" + jsonString(text);
}

/// Whether the last write of the hive was not completed: the two numbers in its header differ.
bool isUnclosed(const std::wstring& file)
{
    const OwnedHandle opened(
        CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    DWORD head[3] = {};
    DWORD done = 0;
    if (opened.get() == INVALID_HANDLE_VALUE || !ReadFile(opened.get(), head, sizeof head, &done, nullptr))
        return false;
    const bool is = done == sizeof head && head[1] != head[2];
    if (is)
        messages().writeLine(L"hive: " + printable(file) +
                             L" was not closed; what is in its logs alone is not seen");
    return is;
}

/// The key as functions take it. Keys are printed with a backslash before them.
std::wstring requireKey(std::wstring word)
{
    if (word.starts_with(L'\\'))
        word.erase(0, 1);
    if (word.ends_with(L'\\'))
        word.pop_back();
    return word;
}

/// The names after the file: of a key, and of a value unless --default says the unnamed one. `rest` takes the
/// operands behind them.
std::pair<std::wstring, std::wstring> takeKeyAndName(const Arguments& arguments,
                                                     std::vector<std::wstring>& rest)
{
    const auto& all = arguments.operands();
    const std::size_t named = arguments.has(L"--default") ? 2 : 3;
    if (all.size() < 2)
        throw UsageError{L"which file, key and value?"};
    std::wstring key = requireKey(all[1]);
    if (all.size() < named)
        throw UsageError{L"which value?"};
    rest.assign(all.begin() + static_cast<std::ptrdiff_t>(named), all.end());
    return {std::move(key), named == 3 ? all[2] : std::wstring()};
}

void printValue(const std::wstring& key, const std::wstring& name, const RegistryData& data, bool json)
{
    if (json)
        results().writeLine(L"{\"type\":\"value\"," + member(L"key", key) + L"," + member(L"name", name) +
                            L"," + member(L"valueType", typeName(data.type)) + L"," + jsonData(data) + L"}");
    else
        results().writeLine(L"    " + (name.empty() ? L"(default)" : printable(name)) + L"  " +
                            typeName(data.type) + L"  " + shortData(data));
}

/// What was found of a hive.
struct Shown
{
    bool json;
    bool isWhole = true; ///< nothing was there that cannot be shown
    /// Names what cannot be shown.
    void miss(const std::wstring& path, const wchar_t* what, std::size_t count)
    {
        if (count == 0)
            return;
        isWhole = false;
        if (json)
            results().writeLine(L"{\"type\":\"error\"," + member(L"path", path) + L"," +
                                member(L"what", what) + L",\"count\":" + std::to_wstring(count) +
                                L",\"code\":" + std::to_wstring(ERROR_INVALID_NAME) + L"}");
        messages().writeLine(L"hive: \\" + printable(path) + L": " + formatCount(count) + L" " + what +
                             L" cannot be shown: no program can ask for the name");
    }
};

/// Prints a value. Returns 2 for a missing one.
long showValue(const IOfflineRegistryKey& key, const wchar_t* name, const Shown& shown)
{
    IOfflineRegistryValue* found = nullptr;
    if (const long failure = key.getValue(name, &found); failure != ERROR_SUCCESS)
        return failure;
    const std::unique_ptr<IOfflineRegistryValue> value(found);
    RegistryData data;
    OwnedBuffer<unsigned char> bytes;
    std::size_t size = 0;
    if (const long failure = value->getData(&data.type, bytes.target(), &size); failure != ERROR_SUCCESS)
        return failure;
    data.bytes.assign(bytes.get(), bytes.get() + size);
    printValue(key.getPath(), name, data, shown.json);
    return ERROR_SUCCESS;
}

/// A key and its values; `below` receives its sub-keys' names. Returns the code.
long showKey(const IOfflineRegistryKey& key, Shown& shown, std::vector<std::wstring>& below)
{
    const std::wstring path = key.getPath();
    unsigned long long written = 0;
    OwnedBuffer<wchar_t> className;
    OwnedBuffer<wchar_t> values;
    OwnedBuffer<wchar_t> keys;
    std::size_t listedValues = 0;
    std::size_t listedKeys = 0;
    std::size_t allValues = 0;
    std::size_t allKeys = 0;
    std::size_t keysBelow = 0;
    long code = key.getInformation(&written, className.target());
    if (code == ERROR_SUCCESS)
        code = key.listValues(values.target(), &listedValues);
    if (code == ERROR_SUCCESS)
        code = key.listSubKeys(keys.target(), &listedKeys);
    if (code == ERROR_SUCCESS)
        code = key.getCounts(&allKeys, &allValues, &keysBelow);
    if (code != ERROR_SUCCESS)
        return code;
    if (shown.json)
        results().writeLine(L"{\"type\":\"key\"," + member(L"path", path) + L",\"lastWriteTime\":" +
                            std::to_wstring(written) + L"," + member(L"class", className.get()) + L"}");
    else
        results().writeLine(L"\\" + printable(path));
    code = showValue(key, L"", shown);
    if (code == ERROR_SUCCESS)
        ++listedValues;
    else if (code != ERROR_FILE_NOT_FOUND)
        return code;
    for (const wchar_t* name = values.get(); *name != L'\0'; name += std::wcslen(name) + 1)
        if (code = showValue(key, name, shown); code != ERROR_SUCCESS)
            return code;
    for (const wchar_t* name = keys.get(); *name != L'\0'; name += std::wcslen(name) + 1)
        below.emplace_back(name);
    shown.miss(path, L"values", allValues - listedValues);
    shown.miss(path, L"sub-keys", allKeys - below.size());
    return ERROR_SUCCESS;
}

int show(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--json", false}});
    const auto& operands = arguments.operands();
    if (operands.empty() || operands.size() > 2)
        throw UsageError{L"which file, and which key?"};
    const std::wstring top = operands.size() == 2 ? requireKey(operands[1]) : L"";
    const std::unique_ptr<IOfflineRegistryKey> root(DllGetOfflineRegistryKey(operands[0].c_str(), L""));
    if (root == nullptr)
        return failed(operands[0], static_cast<long>(GetLastError()));
    isUnclosed(operands[0]);
    Shown shown{arguments.has(L"--json")};
    std::vector<std::wstring> waiting{top};
    while (!waiting.empty()) {
        if (isCancelled() || !results().isOpen())
            return kExitCancelled;
        const std::wstring path = std::move(waiting.back());
        waiting.pop_back();
        IOfflineRegistryKey* found = nullptr;
        std::vector<std::wstring> below;
        long code = root->getKey(path.c_str(), &found);
        const std::unique_ptr<IOfflineRegistryKey> key(found);
        if (code == ERROR_SUCCESS)
            code = showKey(*key, shown, below);
        if (code != ERROR_SUCCESS)
            return failedInside(L"\\" + path, code);
        for (auto name = below.rbegin(); name != below.rend(); ++name)
            waiting.push_back(path.empty() ? *name : path + L'\\' + *name);
    }
    return shown.isWhole ? kExitDone : kExitFailed;
}

/// Settings in the file to be shown or changed; closed at the end.
class OpenFile
{
public:
    OpenFile(const std::wstring& file, unsigned long flags)
        : m_hive(CreateSettingsHive(file.c_str(), kSettingsMustExist | flags)),
          m_code(m_hive == INVALID_HANDLE_VALUE ? static_cast<long>(GetLastError()) : ERROR_SUCCESS)
    {
        unsigned long state = 0;
        if (m_code == ERROR_SUCCESS)
            m_code = SettingsHiveGetState(m_hive, &state);
        if ((state & kSettingsDamaged) != 0) { // as the other tasks say it
            const std::unique_ptr<IOfflineRegistryKey> root(
                DllGetOfflineRegistryKey(file.c_str(), L"", kOfflineEngine));
            m_code = root == nullptr && GetLastError() == ERROR_BADDB ? long{ERROR_BADDB}
                                                                      : long{ERROR_REGISTRY_CORRUPT};
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() { CloseSettingsHive(m_hive); }

    [[nodiscard]] void* get() const { return m_hive; }
    [[nodiscard]] long code() const { return m_code; }
    /// Reads the value's type and data; returns 2 when it does not exist.
    long read(const std::wstring& key, const std::wstring& name, RegistryData& data) const
    {
        OwnedBuffer<unsigned char> bytes;
        std::size_t size = 0;
        const long code =
            SettingsHiveGetValue(m_hive, key.c_str(), name.c_str(), &data.type, bytes.target(), &size);
        if (code == ERROR_SUCCESS)
            data.bytes.assign(bytes.get(), bytes.get() + size);
        return code;
    }

private:
    void* m_hive;
    long m_code;
};

int get(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--json", false}, {L"--default", false}});
    std::vector<std::wstring> rest;
    const std::pair<std::wstring, std::wstring> place = takeKeyAndName(arguments, rest);
    const auto& key = place.first;
    const auto& name = place.second;
    if (!rest.empty())
        throw UsageError{L"one value only"};
    const std::wstring& path = arguments.operands()[0];
    const OpenFile file(path, kSettingsReadOnly);
    RegistryData data;
    if (file.code() != ERROR_SUCCESS)
        return failed(path, file.code());
    if (const long code = file.read(key, name, data); code != ERROR_SUCCESS)
        return failedInside(path, code);
    isUnclosed(path);
    printValue(key, name, data, arguments.has(L"--json"));
    return kExitDone;
}

unsigned long long requireNumber(const std::wstring& word, unsigned long long most)
{
    const bool isHexadecimal = word.size() > 2 && word[0] == L'0' && (word[1] == L'x' || word[1] == L'X');
    const std::wstring digits = isHexadecimal ? word.substr(2) : word;
    errno = 0;
    const unsigned long long number = std::wcstoull(digits.c_str(), nullptr, isHexadecimal ? 16 : 10);
    const wchar_t* const known = isHexadecimal ? L"0123456789abcdefABCDEF" : L"0123456789";
    if (digits.empty() || digits.find_first_not_of(known) != std::wstring::npos || errno != 0 ||
        number > most)
        throw UsageError{printable(word) + L" is not a number of that type"};
    return number;
}

std::vector<unsigned char> requireHex(const std::wstring& word)
{
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < word.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(requireNumber(L"0x" + word.substr(i, 2), 0xFF)));
    if (word.size() % 2 != 0)
        throw UsageError{L"half a byte"};
    return bytes;
}

template <class T>
void append(std::vector<unsigned char>& bytes, const T* values, std::size_t count)
{
    const auto* begin = reinterpret_cast<const unsigned char*>(values);
    bytes.insert(bytes.end(), begin, begin + count * sizeof(T));
}

/// Type and data as they were typed.
RegistryData requireData(const std::wstring& type, const std::vector<std::wstring>& words)
{
    if (words.empty() || (words.size() != 1 && type != L"multi"))
        throw UsageError{words.empty() ? L"which data?" : L"only a list has several texts (--type multi)"};
    RegistryData data;
    if (type == L"dword" || type == L"qword") {
        const bool isWide = type == L"qword";
        const unsigned long long number = requireNumber(words[0], isWide ? ~0ULL : 0xFFFFFFFFULL);
        data.type = isWide ? REG_QWORD : REG_DWORD;
        append(data.bytes, reinterpret_cast<const unsigned char*>(&number), isWide ? 8 : 4);
    } else if (type == L"binary") {
        data.type = REG_BINARY;
        data.bytes = requireHex(words[0]);
    } else if (type == L"sz" || type == L"expand" || type == L"multi") {
        data.type = type == L"sz" ? REG_SZ : type == L"expand" ? REG_EXPAND_SZ : REG_MULTI_SZ;
        for (const std::wstring& word : words)
            append(data.bytes, word.c_str(), word.size() + 1);
        if (type == L"multi")
            append(data.bytes, L"", 1);
    } else {
        throw UsageError{printable(type) + L" is no type"};
    }
    return data;
}

/// Asks unless told not to. Returns whether to continue; otherwise `exitCode` is the program's.
bool isWanted(const Arguments& arguments, const std::wstring& question, int& exitCode)
{
    if (arguments.has(L"--yes"))
        return true;
    const Answer answer = ask(question);
    exitCode =
        answer == Answer::kCancelled ? static_cast<int>(kExitCancelled) : static_cast<int>(kExitFailed);
    return answer == Answer::kYes;
}

/// Changes the file: `change` asks, changes and returns a code, or sets `exitCode`.
template <class Change>
int changeFile(const Arguments& arguments, const std::wstring& path, Change&& change)
{
    const OpenFile file(path, 0);
    if (file.code() != ERROR_SUCCESS)
        return failed(path, file.code());
    if (isUnclosed(path) && !arguments.has(L"--yes")) {
        messages().writeLine(L"hive: nothing was changed (--yes does it all the same)");
        return kExitFailed;
    }
    int exitCode = kExitDone;
    long code = change(file, exitCode);
    if (code == ERROR_SUCCESS && exitCode == kExitDone)
        code = SettingsHiveSave(file.get());
    return code != ERROR_SUCCESS ? failedInside(path, code) : exitCode;
}

int set(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--type", true}, {L"--default", false}, {L"--yes", false}});
    std::vector<std::wstring> rest;
    const std::pair<std::wstring, std::wstring> place = takeKeyAndName(arguments, rest);
    const auto& key = place.first;
    const auto& name = place.second;
    const RegistryData data = requireData(arguments.value(L"--type", L"sz"), rest);
    return changeFile(arguments, arguments.operands()[0], [&](const OpenFile& file, int& exitCode) -> long {
        RegistryData old;
        const long code = file.read(key, name, old);
        if (code != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND)
            return code;
        if (code == ERROR_SUCCESS) {
            messages().writeLine(L"replaces " + typeName(old.type) + L"  " + shortData(old));
            if (!isWanted(arguments, L"Replace it? ", exitCode))
                return ERROR_SUCCESS;
        }
        return SettingsHiveSetValue(file.get(), key.c_str(), name.c_str(), data.type, data.bytes.data(),
                                    data.bytes.size());
    });
}

/// What is lost with a key, also what cannot be shown. Returns the code.
long countBelow(const std::wstring& file, const std::wstring& key, std::wstring& text)
{
    const std::unique_ptr<IOfflineRegistryKey> found(
        DllGetOfflineRegistryKey(file.c_str(), key.c_str(), kOfflineEngine));
    if (found == nullptr)
        return static_cast<long>(GetLastError());
    std::size_t subKeys = 0;
    std::size_t values = 0;
    std::size_t below = 0;
    OwnedBuffer<wchar_t> names;
    std::size_t listed = 0;
    long code = found->getCounts(&subKeys, &values, &below);
    if (code == ERROR_SUCCESS)
        code = found->listSubKeys(names.target(), &listed);
    text = L" with its " + formatCount(values) + L" values, and " + formatCount(below) + L" keys below it";
    if (subKeys != listed)
        text += L", also " + formatCount(subKeys - listed) + L" sub-keys that 'hive show' cannot show";
    return code;
}

int deleteItem(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--default", false}, {L"--yes", false}});
    const auto& operands = arguments.operands();
    const bool isValue = operands.size() == 3 || arguments.has(L"--default");
    if (operands.size() < 2 || operands.size() + (arguments.has(L"--default") ? 1 : 0) > 3)
        throw UsageError{L"which file, and which key or value?"};
    const std::wstring key = requireKey(operands[1]);
    const std::wstring name = operands.size() == 3 ? operands[2] : L"";
    return changeFile(arguments, operands[0], [&](const OpenFile& file, int& exitCode) -> long {
        RegistryData old;
        std::wstring below;
        if (!isValue && key.empty())
            return ERROR_NOT_SUPPORTED; // the root
        const long code = isValue ? file.read(key, name, old) : countBelow(operands[0], key, below);
        if (code != ERROR_SUCCESS)
            return code;
        messages().writeLine(isValue ? L"deletes " + typeName(old.type) + L"  " + shortData(old)
                                     : L"deletes \\" + printable(key) + below);
        if (!isWanted(arguments, L"Delete it? ", exitCode))
            return ERROR_SUCCESS;
        return isValue ? SettingsHiveDeleteValue(file.get(), key.c_str(), name.c_str())
                       : SettingsHiveDeleteKey(file.get(), key.c_str());
    });
}

unsigned long long sizeOf(const std::wstring& file)
{
    // Like the library, take the name as it stands: the system would leave out a dot or a blank at its end.
    const std::wstring literal =
        textOf([&](wchar_t** text) { return PathToExtendedFormW(file.c_str(), text); });
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExW(literal.c_str(), GetFileExInfoStandard, &data);
    return static_cast<unsigned long long>(data.nFileSizeHigh) << 32U | data.nFileSizeLow;
}

void printSizes(const std::wstring& file, const std::wstring& newFile)
{
    const unsigned long long before = sizeOf(file);
    const unsigned long long after = sizeOf(newFile);
    const unsigned long long saved = before > after ? before - after : 0;
    results().writeLine(printable(newFile) + L": " + formatCount(after) + L" bytes, " + formatCount(saved) +
                        L" less than before (" + std::to_wstring(before != 0 ? saved * 100 / before : 0) +
                        L" %)");
}

int compact(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {});
    const auto& operands = arguments.operands();
    if (operands.size() != 2)
        throw UsageError{L"which file, and which new one?"};
    const std::unique_ptr<IOfflineRegistryKey> root(DllGetOfflineRegistryKey(operands[0].c_str(), L""));
    if (root == nullptr)
        return failed(operands[0], static_cast<long>(GetLastError()));
    isUnclosed(operands[0]);
    if (const long code = root->save(operands[1].c_str()); code != ERROR_SUCCESS)
        return failed(operands[1], code);
    printSizes(operands[0], operands[1]);
    return kExitDone;
}

const wchar_t* kindName(unsigned long kind)
{
    constexpr const wchar_t* kNames[] = {L"head of the file",
                                         L"part of the file",
                                         L"sub-key",
                                         L"sub-keys",
                                         L"value",
                                         L"values",
                                         L"value's data",
                                         L"class name",
                                         L"security descriptor",
                                         L"wrong count",
                                         L"wrong parent"};
    return kind < std::size(kNames) ? kNames[kind] : L"something";
}

int salvage(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--json", false}});
    const auto& operands = arguments.operands();
    if (operands.size() != 2)
        throw UsageError{L"which file, and which new one?"};
    OwnedBuffer<HiveLoss> losses;
    std::size_t count = 0;
    std::size_t total = 0;
    const long code =
        HiveFileSalvage(operands[0].c_str(), operands[1].c_str(), losses.target(), &count, &total);
    if (code != ERROR_SUCCESS)
        return failed(code == ERROR_ALREADY_EXISTS ? operands[1] : operands[0], code);
    for (std::size_t i = 0; i < count; ++i) {
        const HiveLoss& loss = losses.get()[i];
        if (arguments.has(L"--json"))
            results().writeLine(L"{\"type\":\"loss\"," + member(L"kind", kindName(loss.kind)) + L"," +
                                member(L"key", loss.key) + L",\"offset\":" + std::to_wstring(loss.offset) +
                                L"}");
        else
            results().writeLine(L"left out: " + std::wstring(kindName(loss.kind)) + L" of \\" +
                                printable(loss.key) + L", at " + std::to_wstring(loss.offset));
    }
    isUnclosed(operands[0]);
    if (!arguments.has(L"--json"))
        printSizes(operands[0], operands[1]);
    messages().writeLine(L"hive: " + formatCount(total) + L" places were left out" +
                         (total == 0 ? L"" : L"; the new file has the rest"));
    return total == 0 ? kExitDone : kExitIncomplete;
}

int run(const std::vector<std::wstring>& words)
{
    constexpr std::pair<const wchar_t*, int (*)(const std::vector<std::wstring>&)> kTasks[] = {
        {L"show", &show},         {L"get", &get},         {L"set", &set},
        {L"delete", &deleteItem}, {L"compact", &compact}, {L"salvage", &salvage}};
    if (words.empty())
        throw UsageError{L"show, get, set, delete, compact or salvage?"};
    if (words[0] == L"--help")
        throw HelpRequest{};
    for (const auto& [name, task] : kTasks)
        if (words[0] == name)
            return task({words.begin() + 1, words.end()});
    throw UsageError{printable(words[0]) + L" is no task"};
}
} // namespace

const Command kHiveCommand = {L"hive", L"read, change, compact and salvage a registry hive file", kHelp,
                              &run};
