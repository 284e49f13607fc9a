#include "core/win32/utils/scanengine/include/Directory.h"

#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/scanengine/include/File.h"

#define DIRECTORY_HEADER "core\\win32\\utils\\scanengine\\include\\Directory.h"

namespace {
/// Whether the system knows something under `path`. Raises the bare code when it cannot tell.
bool hasAttributes(const wchar_t* path)
{
    if (GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES)
        return true;
    const DWORD code = GetLastError();
    if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND && code != ERROR_INVALID_NAME)
        throw static_cast<long>(code);
    return false;
}
} // namespace

Directory::Directory(const wchar_t* path, int expand) : ScanItem(kDirectoryItem)
{
    primitives::placedStep(PLACE(DIRECTORY_HEADER, "Directory::Directory", __LINE__),
                           [&] { setPath(path, expand); });
}

void Directory::create()
{
    const Win32Path target(getPath());
    if (!CreateDirectoryW(target, nullptr))
        throw Exception(PLACE(DIRECTORY_HEADER, "Directory::create", __LINE__));
}

void Directory::deleteItem()
{
    const Win32Path target(getPath());
    if (!RemoveDirectoryW(target))
        throw Exception(PLACE(DIRECTORY_HEADER, "Directory::deleteItem", __LINE__));
}

int Directory::exists() const
{
    int found = 0;
    primitives::placedStep(PLACE(DIRECTORY_HEADER, "Directory::exists", __LINE__), [&] {
        // A search finds neither "folder\" nor the root of a drive or share: the closing backslash is left
        // off, and for what may be a root the question is whether it has attributes.
        std::wstring_view text = path().view();
        while (!text.empty() && (text.back() == L'\\' || text.back() == L'/'))
            text.remove_suffix(1);
        const std::wstring plain(text);
        const bool drive = plain.size() == 2 && plain[1] == L':';
        const bool exists = (!plain.empty() && !drive && pathExists(plain.c_str())) ||
                            (text.size() != path().view().size() && hasAttributes(getPath()));
        found = exists ? 1 : 0;
    });
    return found;
}
