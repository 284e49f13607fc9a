#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/registry/include/KeyWay.h"

/// What the exported registry functions do; see api.h. They raise bare codes. A view is 0, 32 or 64.
namespace registry {
inline constexpr std::size_t kLongestValueName = 16383;

struct Value
{
    DWORD type = REG_NONE;
    std::vector<unsigned char> data;
};

/// Opens a key; never returns one of the predefined handles that some keys give.
[[nodiscard]] RegistryKeyHandle open(HKEY root, const wchar_t* key, unsigned view, REGSAM access,
                                     DWORD options = 0);
/// Opens a key without following links, also on the way (KeyWay).
[[nodiscard]] RegistryKeyHandle openItself(HKEY root, const wchar_t* key, unsigned view, REGSAM access);
/// Opens a key for writing; creates it and its parents if they are missing.
RegistryKeyHandle createKey(HKEY root, const wchar_t* key, unsigned view);
/// The way from a root to keys that are changed, in a view.
[[nodiscard]] KeyWay wayFrom(HKEY root, unsigned view);
/// Writes a value of an open key.
void set(HKEY key, const wchar_t* name, DWORD type, std::basic_string_view<unsigned char> data);
[[nodiscard]] Value read(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view);
void write(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view, unsigned long type,
           std::basic_string_view<unsigned char> data);
[[nodiscard]] std::wstring readString(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view,
                                      bool expand);
/// The list, and how many entries it has.
[[nodiscard]] std::tuple<std::wstring, std::size_t> readMultiString(HKEY root, const wchar_t* key,
                                                                    const wchar_t* name, unsigned view);
[[nodiscard]] unsigned long readDword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view);
[[nodiscard]] unsigned long long readQword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view);
[[nodiscard]] std::tuple<std::vector<unsigned char>, unsigned long>
readBinary(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view);
void writeString(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view, std::wstring_view text,
                 unsigned long type);
[[nodiscard]] bool keyExists(HKEY root, const wchar_t* key, unsigned view);
[[nodiscard]] bool valueExists(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view);
void deleteTree(HKEY root, const wchar_t* key, unsigned view);
void deleteValue(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view);
void copyTree(HKEY sourceRoot, const wchar_t* source, HKEY targetRoot, const wchar_t* target, unsigned view);
[[nodiscard]] std::tuple<HKEY, std::wstring> parsePath(std::wstring_view text);
[[nodiscard]] std::wstring formatPath(HKEY root, std::wstring_view key);
void exportText(HKEY root, const wchar_t* key, unsigned view, const wchar_t* file);
void importText(const wchar_t* file, unsigned view);
[[nodiscard]] unsigned long long lastWrite(HKEY root, const wchar_t* key, unsigned view);
[[nodiscard]] std::wstring typeName(unsigned long type);

/// One key of a tree.
struct TreeKey
{
    std::wstring path; ///< below the tree's top, whose path is empty
    bool isLink;
    std::vector<std::pair<std::wstring, Value>> values;
};
/// A key and everything below it, parents first. Links are opened themselves.
[[nodiscard]] std::vector<TreeKey> readTree(HKEY root, const wchar_t* key, unsigned view);
} // namespace registry
