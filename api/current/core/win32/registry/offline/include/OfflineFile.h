#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/win32/registry/offline/include/HiveFile.h"
#include "core/win32/utils/paths/include/FileIdentity.h"

/// Hive files on the disk, and conversions between the types of the engine and of Windows. All raise bare
/// codes.
namespace offline {
/// What changes when a file is written or replaced.
struct FileStamp
{
    FileIdentity identity;
    std::uint64_t size = 0;
    HiveTime written = 0;
    DWORD attributes = 0;

    /// Whether it is the same file with the same content.
    [[nodiscard]] bool isOfSame(const FileStamp& other) const noexcept
    {
        return identity == other.identity && size == other.size && written == other.written;
    }
};

/// Reads the whole file; nobody can write it meanwhile. Raises kTooLarge for more than a hive can hold.
/// `stamp` may be null.
[[nodiscard]] std::vector<std::byte> readFile(const wchar_t* path, FileStamp* stamp = nullptr);
/// Creates or overwrites the file and flushes it. Deletes it when it cannot be written completely.
void writeFile(const wchar_t* path, const std::vector<std::byte>& bytes);
/// Creates a new file and flushes it. Raises 183 when it exists. Deletes it when it cannot be written
/// completely.
void createFile(const wchar_t* path, const std::vector<std::byte>& bytes);
/// Replaces `path`, an absolute one, in one step with a new file with these bytes, which is written beside it
/// and flushed first. At any moment, and after a crash, the complete old or new file exists. Temporary files
/// that earlier calls of ended processes left beside it are deleted.
///
/// `known` is the stamp of the file as it was read, or nothing if there was none, and gets that of the new
/// file. Raises 1006 when another file, or a changed one, is there: callers in other processes wait until
/// this is done, so none replaces what another has just written. Raises 681 for a link, 5 for a read-only
/// file, 1460 when another caller takes longer than ten seconds.
void replaceFile(const std::wstring& path, const std::vector<std::byte>& bytes,
                 std::optional<FileStamp>& known);
/// Writes them to a new file, under the first free name of `path`, `path`-2, `path`-3 and so on, and flushes
/// it.
void keepFile(const std::wstring& path, const std::vector<std::byte>& bytes);

/// One name for all spellings of a file: the file's, or while it is missing its folder's final path and the
/// file's name, in upper case. A link is not followed. Raises bare codes.
[[nodiscard]] std::wstring nameOfFile(const std::wstring& path);

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
