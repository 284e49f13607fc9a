#pragma once

#include <functional>
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
void writeNew(const wchar_t* path, const std::vector<std::byte>& bytes);
/// Flushes what another writer may have left in the system's cache.
void flushFile(const wchar_t* path);

/// The absolute form of a path that can name a file on a disk. Raises 161 for a device (NUL, CON, COM1, a
/// volume), a pipe, a mailslot, a stream, and a path that ends with a backslash.
[[nodiscard]] std::wstring requireFilePath(const wchar_t* path);

/// A name for a temporary file of this process beside `path`: NAME.<process id>-<number>.tmp, with the first
/// 200 characters of its name.
[[nodiscard]] std::wstring temporaryName(const std::wstring& path, unsigned number);
/// Deletes temporary files with such names that ended processes have left. `pattern` finds them, and `isOwn`
/// decides by NAME. None is deleted on a share, where the process may be another machine's. A failure harms
/// nothing: the next time they are tried again.
void deleteLeftovers(const std::wstring& pattern, const std::function<bool(std::wstring_view)>& isOwn);

/// Creates a new file in one step. `write` writes and flushes a temporary one under the name that it gets,
/// and raises 183 if that exists. Raises 183 when `path` exists, and what requireFilePath raises.
void createFile(const wchar_t* path, const std::function<void(const wchar_t*)>& write);
/// Replaces `path`, an absolute one, in one step with a new file with these bytes, which is written beside it
/// and flushed first. At any moment, and after a crash, the complete old or new file exists. Temporary files
/// that earlier calls of ended processes left beside it are deleted. With `old`, these bytes are kept too, in
/// a new file under the first free name of `path`.damaged, `path`.damaged-2 and so on, which it gets when it
/// is whole; one with these bytes that is there already will do. A call that fails leaves no such file.
///
/// `known` is the stamp of the file as it was read, or nothing if there was none, and gets that of the new
/// file. Raises 1006 when another file, or a changed one, is there: callers in other processes wait until
/// this is done, so none replaces what another has just written. Raises 681 for a link, 5 for a read-only
/// file, 161 for a device, 1460 when another caller takes longer than ten seconds.
void replaceFile(const std::wstring& path, const std::vector<std::byte>& bytes,
                 std::optional<FileStamp>& known, const std::vector<std::byte>* old = nullptr);

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
