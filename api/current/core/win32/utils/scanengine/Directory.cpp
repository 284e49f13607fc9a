#include "core/win32/utils/scanengine/include/Directory.h"

#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/scanengine/include/File.h"

#define DIRECTORY_HEADER "core\\win32\\utils\\scanengine\\include\\Directory.h"

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
    // A search finds neither "folder\" nor a drive's root: the closing backslash is left off, and for a root
    // the question is whether it has attributes.
    std::wstring_view text = path().view();
    while (!text.empty() && (text.back() == L'\\' || text.back() == L'/'))
        text.remove_suffix(1);
    if (text.size() == 2 && text[1] == L':' && path().view().size() > 2)
        return GetFileAttributesW(getPath()) != INVALID_FILE_ATTRIBUTES ? 1 : 0;

    int found = 0;
    primitives::placedStep(PLACE(DIRECTORY_HEADER, "Directory::exists", __LINE__), [&] {
        const std::wstring plain(text);
        found = !plain.empty() && pathExists(plain.c_str()) ? 1 : 0;
    });
    return found;
}
