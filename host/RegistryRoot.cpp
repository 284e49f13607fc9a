#include "RegistryRoot.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "Console.h"

namespace {
constexpr std::size_t kMostCharacters = 60;
constexpr unsigned long kMostBytes = 16;

const struct
{
    const wchar_t* names[2];
    HKEY root;
} kRoots[] = {
    {{L"HKLM", L"HKEY_LOCAL_MACHINE"}, HKEY_LOCAL_MACHINE},
    {{L"HKCU", L"HKEY_CURRENT_USER"}, HKEY_CURRENT_USER},
    {{L"HKCR", L"HKEY_CLASSES_ROOT"}, HKEY_CLASSES_ROOT},
    {{L"HKU", L"HKEY_USERS"}, HKEY_USERS},
    {{L"HKCC", L"HKEY_CURRENT_CONFIG"}, HKEY_CURRENT_CONFIG},
};

const wchar_t* const kTypes[] = {
    L"REG_NONE",
    L"REG_SZ",
    L"REG_EXPAND_SZ",
    L"REG_BINARY",
    L"REG_DWORD",
    L"REG_DWORD_BIG_ENDIAN",
    L"REG_LINK",
    L"REG_MULTI_SZ",
    L"REG_RESOURCE_LIST",
    L"REG_FULL_RESOURCE_DESCRIPTOR",
    L"REG_RESOURCE_REQUIREMENTS_LIST",
    L"REG_QWORD",
};

template <class Number>
std::wstring number(const void* data)
{
    Number value = 0;
    std::memcpy(&value, data, sizeof value);
    return std::to_wstring(value);
}

std::wstring text(const void* data, unsigned long size, bool list)
{
    std::wstring characters(static_cast<const wchar_t*>(data), size / sizeof(wchar_t));
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
} // namespace

std::optional<RegistryRoot> parseRegistryRoot(const std::wstring& text)
{
    const std::wstring name = text.substr(0, text.find(L'\\'));
    for (const auto& known : kRoots)
        for (const wchar_t* each : known.names)
            if (_wcsicmp(each, name.c_str()) == 0)
                return RegistryRoot{known.root,
                                    name.size() < text.size() ? text.substr(name.size() + 1) : L""};
    return std::nullopt;
}

std::wstring typeName(unsigned long type)
{
    return type < std::size(kTypes) ? kTypes[type] : L"type " + std::to_wstring(type);
}

std::wstring shortData(IRegistryValue& value)
{
    unsigned long size = 0;
    const auto* data = static_cast<const unsigned char*>(value.getData(size));
    switch (value.getValueType()) {
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
