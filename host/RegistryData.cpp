#include "RegistryData.h"

#include <algorithm>
#include <cstring>

#include "Console.h"
#include "OwnedText.h"

#include "core/win32/utils/registry/api.h"

namespace {
constexpr std::size_t kMostCharacters = 60;
constexpr unsigned long kMostBytes = 16;

template <class Number>
std::wstring number(const void* data)
{
    Number value = 0;
    std::memcpy(&value, data, sizeof value);
    return std::to_wstring(value);
}

std::wstring charactersOf(const void* data, std::size_t size)
{
    std::wstring characters(size / sizeof(wchar_t), L'\0');
    if (!characters.empty())
        std::memcpy(characters.data(), data, characters.size() * sizeof(wchar_t));
    return characters;
}

std::wstring text(const void* data, unsigned long size, bool list)
{
    std::wstring characters = charactersOf(data, size);
    while (!characters.empty() && characters.back() == L'\0')
        characters.pop_back();
    if (list)
        std::replace(characters.begin(), characters.end(), L'\0', L'|');
    const bool cut = characters.size() > kMostCharacters;
    if (cut)
        characters.resize(IS_HIGH_SURROGATE(characters[kMostCharacters - 1]) ? kMostCharacters - 1
                                                                             : kMostCharacters);
    return L"\"" + printable(characters) + (cut ? L"\"..." : L"\"") +
           (size % sizeof(wchar_t) != 0 ? L" and half a character" : L"");
}

std::wstring hexOf(const std::vector<unsigned char>& bytes)
{
    constexpr wchar_t kHex[] = L"0123456789abcdef";
    std::wstring hex;
    hex.reserve(bytes.size() * 2);
    for (const unsigned char byte : bytes) {
        hex += kHex[byte >> 4U];
        hex += kHex[byte & 0xFU];
    }
    return L"\"" + hex + L"\"";
}

/// Adds the bytes when the text does not represent them exactly: it differs from `again`, or there is half a
/// character.
std::wstring withHex(const std::wstring& json, const RegistryData& data, const std::wstring& again)
{
    const bool whole = data.bytes.size() == again.size() * sizeof(wchar_t) &&
                       std::memcmp(data.bytes.data(), again.data(), data.bytes.size()) == 0;
    return whole && !again.empty() ? json : json + LR"(,"hex":)" + hexOf(data.bytes);
}

std::wstring jsonText(const RegistryData& data)
{
    std::wstring characters = charactersOf(data.bytes.data(), data.bytes.size());
    if (!characters.empty() && characters.back() == L'\0')
        characters.pop_back();
    return withHex(jsonString(characters), data, characters + L'\0');
}

std::wstring jsonList(const RegistryData& data)
{
    std::wstring characters = charactersOf(data.bytes.data(), data.bytes.size());
    if (!characters.empty() && characters.back() == L'\0')
        characters.pop_back();
    std::wstring json = L"[";
    std::wstring again;
    for (std::size_t at = 0; at < characters.size();) {
        const std::size_t end = std::min(characters.find(L'\0', at), characters.size());
        const std::wstring entry = characters.substr(at, end - at);
        json += (at != 0 ? L"," : L"") + jsonString(entry);
        again += entry + L'\0';
        at = end + 1;
    }
    return withHex(json + L"]", data, again + L'\0');
}
} // namespace

RegistryData readData(IRegistryValue& value)
{
    RegistryData data;
    unsigned long size = 0;
    const auto* bytes = static_cast<const unsigned char*>(value.getData(size));
    data.bytes.assign(bytes, bytes + size);
    data.type = value.getValueType(); // read together with the data
    return data;
}

std::wstring typeName(unsigned long type)
{
    const std::wstring name = textOf([&](wchar_t** text) { return RegistryTypeName(type, text); });
    return (name[0] == L'R' ? L"" : L"type ") + name;
}

std::wstring shortData(const RegistryData& value)
{
    const unsigned char* data = value.bytes.data();
    const auto size = static_cast<unsigned long>(value.bytes.size());
    switch (value.type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
    case REG_LINK:
        return text(data, size, false);
    case REG_MULTI_SZ:
        return text(data, size, true);
    case REG_DWORD:
        if (size == sizeof(std::uint32_t))
            return number<std::uint32_t>(data);
        break;
    case REG_QWORD:
        if (size == sizeof(std::uint64_t))
            return number<std::uint64_t>(data);
        break;
    default:
        break;
    }
    std::wstring bytes;
    constexpr wchar_t kHex[] = L"0123456789abcdef";
    for (unsigned long i = 0; i < std::min(size, kMostBytes); ++i) {
        bytes += kHex[data[i] >> 4U];
        bytes += kHex[data[i] & 0xFU];
        bytes += L' ';
    }
    return bytes + (size > kMostBytes ? L"... " : L"") + L"(" + formatBytes(size) + L")";
}

std::wstring jsonData(const RegistryData& data)
{
    const std::size_t size = data.bytes.size();
    std::wstring json = LR"("data":)";
    switch (data.type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
    case REG_LINK:
        return json + jsonText(data);
    case REG_MULTI_SZ:
        return json + jsonList(data);
    case REG_DWORD:
        return json +
               (size == sizeof(std::uint32_t) ? number<std::uint32_t>(data.bytes.data()) : hexOf(data.bytes));
    case REG_QWORD:
        return json +
               (size == sizeof(std::uint64_t) ? number<std::uint64_t>(data.bytes.data()) : hexOf(data.bytes));
    default:
        return json + hexOf(data.bytes);
    }
}
