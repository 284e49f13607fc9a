#pragma once

#include <windows.h>

#include <string>
#include <tuple>

/// What the exported shell functions do; see api.h. They raise bare codes.
namespace shell {
[[nodiscard]] std::wstring folder(int number, unsigned long session);
void createShortcut(const wchar_t* link, const wchar_t* target, const wchar_t* arguments, const wchar_t* icon,
                    int iconIndex);
/// Target, arguments, working folder.
[[nodiscard]] std::tuple<std::wstring, std::wstring, std::wstring> readShortcut(const wchar_t* link);
[[nodiscard]] bool isShortcutBroken(const wchar_t* link);
/// Bytes and items.
[[nodiscard]] std::tuple<unsigned long long, unsigned long long> queryBin(const wchar_t* drive);
void emptyBin(const wchar_t* drive, HANDLE cancelEvent);
[[nodiscard]] std::wstring typeName(const wchar_t* path);
void openFolder(const wchar_t* folder, const wchar_t* item);
} // namespace shell

namespace icons {
[[nodiscard]] void* extract(const wchar_t* file, int index, int size);
[[nodiscard]] unsigned long count(const wchar_t* file);
[[nodiscard]] void* ofPath(const wchar_t* path, bool large);
void toBitmapFile(void* icon, const wchar_t* file);
void destroy(void* icon);
} // namespace icons

namespace signatures {
/// The system's verdict on a file's signature, and the signer.
[[nodiscard]] std::tuple<long, std::wstring> verifyFile(const wchar_t* path);
} // namespace signatures
