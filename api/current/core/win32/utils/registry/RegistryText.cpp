// The text format of keys: "Windows Registry Editor Version 5.00".

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "core/win32/utils/files/include/Files.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/registry/include/Registry.h"
#include "core/win32/utils/strings/include/Strings.h"

namespace {
constexpr wchar_t kMark = 0xFEFF;
constexpr std::wstring_view kHeader = L"Windows Registry Editor Version 5.00";
constexpr std::wstring_view kLineEnd = L"\r\n";
constexpr std::wstring_view kHexDigits = L"0123456789abcdef";

std::wstring quoted(std::wstring_view text)
{
    std::wstring result = L"\"";
    for (const wchar_t c : text) {
        if (c == L'"' || c == L'\\')
            result += L'\\';
        result += c;
    }
    return result + L'"';
}

std::wstring hexOf(unsigned long number, int digits)
{
    std::wstring text;
    while (digits-- > 0)
        text += kHexDigits[number >> (4U * static_cast<unsigned>(digits)) & 0xFU];
    return text;
}

/// The bytes separated by commas, in lines of readable width.
std::wstring hexList(const std::vector<unsigned char>& data)
{
    constexpr std::size_t kPerLine = 24;
    std::wstring text;
    for (std::size_t i = 0; i < data.size(); ++i) {
        text += hexOf(data[i], 2);
        if (i + 1 == data.size())
            break;
        text += L',';
        if (i % kPerLine == kPerLine - 1)
            text.append(L"\\").append(kLineEnd).append(L"  ");
    }
    return text;
}

/// Whether the data is a text that can be quoted and read back unchanged.
bool isPlainText(const registry::Value& value, std::wstring& text)
{
    if (value.type != REG_SZ || value.data.size() < sizeof(wchar_t) ||
        value.data.size() % sizeof(wchar_t) != 0)
        return false;
    text.resize(value.data.size() / sizeof(wchar_t));
    std::memcpy(text.data(), value.data.data(), value.data.size());
    if (text.back() != L'\0')
        return false;
    text.pop_back();
    return std::none_of(text.begin(), text.end(), [](wchar_t c) { return c < L' '; });
}

std::wstring dataText(const registry::Value& value)
{
    std::wstring text;
    if (isPlainText(value, text))
        return quoted(text);
    if (value.type == REG_DWORD && value.data.size() == sizeof(DWORD)) {
        DWORD number;
        std::memcpy(&number, value.data.data(), sizeof number);
        return L"dword:" + hexOf(number, 8);
    }
    if (value.type == REG_BINARY)
        return L"hex:" + hexList(value.data);
    std::wstring type = hexOf(value.type, 8);
    type.erase(0, std::min(type.find_first_not_of(L'0'), type.size() - 1));
    return L"hex(" + type + L"):" + hexList(value.data);
}

/// Raises unless the registry accepts all names of a key, and the value's.
void requireNames(std::wstring_view key, std::wstring_view value)
{
    constexpr std::size_t kMostLevels = 512;
    const std::vector<std::wstring> names = paths::namesOf(key);
    if (names.size() > kMostLevels || key.find(L'\0') != std::wstring_view::npos ||
        value.find(L'\0') != std::wstring_view::npos || value.size() > registry::kLongestValueName ||
        std::any_of(names.begin(), names.end(),
                    [](const std::wstring& name) { return name.size() > keyway::kLongestName; }))
        raiseCode(ERROR_INVALID_DATA);
}

void requireWritable(std::wstring_view name)
{
    if (name.find_first_of(std::wstring_view(L"\r\n\0", 3)) != std::wstring_view::npos)
        raiseCode(ERROR_INVALID_DATA); // the format cannot express it
}

/// One key of a file, with its values.
struct ReadKey
{
    HKEY root;
    std::wstring path;
    std::vector<std::pair<std::wstring, registry::Value>> values;
};

/// Parses the format strictly: anything unknown is refused.
class Reader
{
public:
    explicit Reader(std::wstring_view text) : m_rest(text) {}

    std::vector<ReadKey> read()
    {
        if (line() != kHeader)
            refuse();
        std::vector<ReadKey> keys;
        while (!m_rest.empty()) {
            std::wstring_view text = line();
            if (text.empty() || text.front() == L';')
                continue;
            if (text.front() == L'[') {
                if (text.back() != L']' || text.size() < 3 || text[1] == L'-') // this would delete the key
                    refuse();
                auto [root, path] = registry::parsePath(text.substr(1, text.size() - 2));
                requireNames(path, {});
                keys.push_back({root, std::move(path), {}});
            } else if (keys.empty()) {
                refuse();
            } else {
                std::wstring name = valueName(text);
                requireNames({}, name);
                registry::Value value = data(text);
                // It would make the key look like a link.
                if (value.type == REG_LINK && strings::equalsIgnoringCase(name, L"SymbolicLinkValue"))
                    refuse();
                keys.back().values.push_back({std::move(name), std::move(value)});
            }
        }
        return keys;
    }

private:
    [[noreturn]] static void refuse() { raiseCode(ERROR_INVALID_DATA); }

    std::wstring_view line()
    {
        const std::size_t end = std::min(m_rest.find(L'\n'), m_rest.size());
        std::wstring_view text = m_rest.substr(0, end);
        m_rest.remove_prefix(std::min(end + 1, m_rest.size()));
        if (!text.empty() && text.back() == L'\r')
            text.remove_suffix(1);
        return text;
    }

    /// Removes the quoted text from the front of `text` and returns it.
    static std::wstring quotedText(std::wstring_view& text)
    {
        std::wstring result;
        std::size_t at = 1;
        for (; at < text.size() && text[at] != L'"'; ++at) {
            if (text[at] == L'\\' && ++at == text.size())
                refuse();
            result += text[at];
        }
        if (text.empty() || text.front() != L'"' || at >= text.size())
            refuse();
        text.remove_prefix(at + 1);
        return result;
    }

    static std::wstring valueName(std::wstring_view& text)
    {
        std::wstring name;
        if (text.front() == L'@')
            text.remove_prefix(1);
        else
            name = quotedText(text);
        if (text.empty() || text.front() != L'=')
            refuse();
        text.remove_prefix(1);
        return name;
    }

    static unsigned long hexNumber(std::wstring_view digits)
    {
        unsigned long number = 0;
        if (digits.empty() || digits.size() > 8)
            refuse();
        for (const wchar_t c : digits) {
            const unsigned digit = strings::digitValue(c);
            if (digit > 15)
                refuse();
            number = number << 4U | digit;
        }
        return number;
    }

    registry::Value data(std::wstring_view text)
    {
        constexpr std::wstring_view kDword = L"dword:";
        registry::Value value;
        if (!text.empty() && text.front() == L'"') {
            const std::wstring content = quotedText(text);
            value.type = REG_SZ;
            value.data.resize((content.size() + 1) * sizeof(wchar_t));
            std::memcpy(value.data.data(), content.c_str(), value.data.size());
            if (!text.empty())
                refuse();
        } else if (text.substr(0, kDword.size()) == kDword) {
            value.type = REG_DWORD;
            const DWORD number = hexNumber(text.substr(kDword.size()));
            value.data.resize(sizeof number);
            std::memcpy(value.data.data(), &number, sizeof number);
        } else {
            const std::size_t colon = text.find(L':');
            const std::wstring_view kind = text.substr(0, colon);
            if (colon == std::wstring_view::npos ||
                (kind != L"hex" && (kind.substr(0, 4) != L"hex(" || kind.back() != L')')))
                refuse();
            value.type = kind == L"hex" ? REG_BINARY : hexNumber(kind.substr(4, kind.size() - 5));
            bytes(text.substr(colon + 1), value.data);
        }
        return value;
    }

    /// Bytes separated by commas; a backslash continues them on the next line.
    void bytes(std::wstring_view text, std::vector<unsigned char>& data)
    {
        for (bool isContinued = false;; isContinued = true) {
            const bool more = !text.empty() && text.back() == L'\\';
            if (more)
                text.remove_suffix(1);
            while (!text.empty() && text.front() == L' ')
                text.remove_prefix(1);
            if (text.empty() && (more || isContinued))
                refuse();
            while (!text.empty()) {
                const std::wstring_view byte = text.substr(0, text.find(L','));
                if (byte.size() != 2)
                    refuse();
                data.push_back(static_cast<unsigned char>(hexNumber(byte)));
                const bool last = byte.size() == text.size();
                text.remove_prefix(last ? byte.size() : byte.size() + 1);
                if (more ? last : !last && text.empty()) // a comma too few or too many
                    refuse();
            }
            if (!more)
                return;
            text = line();
        }
    }

    std::wstring_view m_rest;
};
} // namespace

namespace registry {
void exportText(HKEY root, const wchar_t* key, unsigned view, const wchar_t* file)
{
    std::wstring top(key);
    while (!top.empty() && top.back() == L'\\')
        top.pop_back();
    std::wstring text = kMark + std::wstring(kHeader);
    text.append(kLineEnd);
    for (const TreeKey& each : readTree(root, top.c_str(), view)) {
        if (each.isLink)
            continue; // it would be imported as an ordinary key
        const std::wstring path = top + (top.empty() || each.path.empty() ? L"" : L"\\") + each.path;
        requireWritable(path);
        text.append(kLineEnd).append(L"[" + formatPath(root, path) + L"]").append(kLineEnd);
        for (const auto& [name, value] : each.values) {
            requireWritable(name);
            text.append(name.empty() ? L"@" : quoted(name))
                .append(L"=")
                .append(dataText(value))
                .append(kLineEnd);
        }
    }
    files::writeAtomically(
        file, {reinterpret_cast<const unsigned char*>(text.data()), text.size() * sizeof(wchar_t)});
}

void importText(const wchar_t* file, unsigned view)
{
    constexpr unsigned long long kMost = 1ULL << 28U;
    static_cast<void>(wayFrom(HKEY_CURRENT_USER, view)); // raises for an invalid view
    const std::vector<unsigned char> bytes = files::readAll(file, kMost);
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    if (text.empty() || bytes.size() % sizeof(wchar_t) != 0)
        raiseCode(ERROR_INVALID_DATA);
    std::memcpy(text.data(), bytes.data(), bytes.size());
    if (text.front() != kMark)
        raiseCode(ERROR_INVALID_DATA);
    const std::vector<ReadKey> keys = Reader(std::wstring_view(text).substr(1)).read();
    std::vector<std::pair<HKEY, KeyWay>> ways; // for each root that the text names
    for (const ReadKey& key : keys) {
        auto way = std::find_if(ways.begin(), ways.end(), [&](auto& each) { return each.first == key.root; });
        if (way == ways.end())
            way = ways.insert(way, {key.root, wayFrom(key.root, view)});
        const HKEY made = way->second.make(key.path);
        for (const auto& [name, value] : key.values)
            set(made, name.c_str(), value.type, {value.data.data(), value.data.size()});
    }
}
} // namespace registry
