#pragma once

#include <string>
#include <string_view>

#include "core/win32/registry/offline/include/HiveFile.h"

/// Hive files on the disk, and what the engine and Windows call the same things. All raise bare codes.
namespace offline {
/// The whole file, which nobody writes meanwhile. Raises kTooLarge for more than a hive can hold.
[[nodiscard]] std::vector<std::byte> readFile(const wchar_t* path);
/// Makes the file anew, or overwrites it, and flushes it. One that cannot be written whole is deleted.
void writeFile(const wchar_t* path, const std::vector<std::byte>& bytes);
/// Makes a new file and flushes it. Raises 183 where one is. One that cannot be written whole is deleted.
void createFile(const wchar_t* path, const std::vector<std::byte>& bytes);
/// Puts a new file with these bytes in the place of `path`, a settled one, in one step: it is written beside
/// it and flushed before. At any moment, and after a crash, the old or the new one is there, whole. Raises
/// 681 where a link is there.
void replaceFile(const std::wstring& path, const std::vector<std::byte>& bytes);
/// Writes them into a new file, under the first name of `path`, `path`-2, `path`-3 that is free, and flushes
/// it.
void keepFile(const std::wstring& path, const std::vector<std::byte>& bytes);

[[nodiscard]] HiveTime currentTime() noexcept;
[[nodiscard]] inline std::u16string unitsOf(std::wstring_view text)
{
    return {text.begin(), text.end()};
}
[[nodiscard]] inline std::wstring wideOf(std::u16string_view text)
{
    return {text.begin(), text.end()};
}
} // namespace offline
