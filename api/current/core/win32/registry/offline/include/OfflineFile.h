#pragma once

#include <string>
#include <string_view>

#include "core/win32/registry/offline/include/HiveFile.h"

/// Hive files on the disk, and conversions between the types of the engine and of Windows. All raise bare
/// codes.
namespace offline {
/// Reads the whole file; nobody can write it meanwhile. Raises kTooLarge for more than a hive can hold.
[[nodiscard]] std::vector<std::byte> readFile(const wchar_t* path);
/// Creates or overwrites the file and flushes it. Deletes it when it cannot be written completely.
void writeFile(const wchar_t* path, const std::vector<std::byte>& bytes);
/// Creates a new file and flushes it. Raises 183 when it exists. Deletes it when it cannot be written
/// completely.
void createFile(const wchar_t* path, const std::vector<std::byte>& bytes);
/// Replaces `path`, an absolute one, in one step with a new file with these bytes, which is written beside it
/// and flushed first. At any moment, and after a crash, the complete old or new file exists. Raises 681 for a
/// link.
void replaceFile(const std::wstring& path, const std::vector<std::byte>& bytes);
/// Writes them to a new file, under the first free name of `path`, `path`-2, `path`-3 and so on, and flushes
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
