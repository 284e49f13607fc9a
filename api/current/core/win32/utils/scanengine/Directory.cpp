#include "core/win32/utils/scanengine/include/Directory.h"

#include <typeinfo>

#include "core/win32/utils/objectmanager/include/LibraryCall.h"
#include "core/win32/utils/paths/include/Removal.h"
#include "core/win32/utils/scanengine/include/File.h"

constexpr char kDirectoryHeader[] = "core\\win32\\utils\\scanengine\\include\\Directory.h";

namespace {
/// Whether `path` has attributes. Raises the bare code when the system cannot tell.
bool hasAttributes(const wchar_t* path)
{
    if (GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES)
        return true;
    const DWORD code = GetLastError();
    if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND && code != ERROR_INVALID_NAME)
        raiseCode(code);
    return false;
}
} // namespace

Directory::Directory(const wchar_t* path, int expand) : ScanItem(kDirectoryItem)
{
    primitives::placedStep(PLACE(kDirectoryHeader, "Directory::Directory", __LINE__),
                           [&] { setPath(path, expand); });
}

void Directory::setPath(const wchar_t* path, int expand)
{
    const InsideLibrary inside;
    ScanItem::setPath(path, expand);
    settle();
}

void Directory::settle()
{
    m_isPlainFolder = false;
    m_origin = PathOrigin();
    primitives::placedStep(PLACE(kDirectoryHeader, "Directory::setPath", __LINE__), [&] {
        try {
            m_origin = PathOrigin(path().view());
        } catch (...) {
            ScanItem::setPath(L"", 0); // the text alone could come to mean something else
            throw;
        }
    });
}

bool Directory::isInterchangeable(const ScanItem& filed) const
{
    const InsideLibrary inside;
    const auto* other = dynamic_cast<const Directory*>(&filed);
    return other != nullptr && typeid(*this) == typeid(*other) &&
           m_origin.settled(path().view()) == other->m_origin.settled(other->path().view());
}

long Directory::load(unsigned long code, IInputByteStream& stream)
{
    const InsideLibrary inside;
    KeptPath kept(*this);
    ScanItem::load(code, stream);
    primitives::placedStep(PLACE(kDirectoryHeader, "Directory::load", __LINE__), [&] {
        if ((code & kStatePath) == 0)
            return;
        m_origin = PathOrigin(path().view());
        m_isPlainFolder = false;
    });
    kept.release();
    return ERROR_SUCCESS;
}

void Directory::create()
{
    const InsideLibrary inside;
    const ItemTarget target(getPath(), m_origin);
    HeldFolders held;
    primitives::placedStep(PLACE(kDirectoryHeader, "Directory::create", __LINE__),
                           [&] { m_origin.holdParents(held, path().view()); });
    if (!CreateDirectoryW(target, nullptr))
        throw Exception(PLACE(kDirectoryHeader, "Directory::create", __LINE__));
}

void Directory::deleteItem()
{
    const InsideLibrary inside;
    const ItemTarget target(getPath(), m_origin);
    HeldFolders held;
    primitives::placedStep(PLACE(kDirectoryHeader, "Directory::deleteItem", __LINE__), [&] {
        m_origin.holdParents(held, path().view());
        const auto look = [&] {
            const ItemLook now = ItemLook::at(target);
            if (now.isLink && m_isPlainFolder)
                raiseCode(kStoppedOnSymlink); // not what was found
            if (now.exists() && !now.isFolder())
                raiseCode(ERROR_DIRECTORY);
        };
        look();
        removal::removeByName(target, true, nullptr, look, [](HANDLE) { return true; });
    });
}

int Directory::exists() const
{
    const InsideLibrary inside;
    int found = 0;
    primitives::placedStep(PLACE(kDirectoryHeader, "Directory::exists", __LINE__), [&] {
        // A search finds neither "folder\" nor the root of a drive or share. So the closing backslash is
        // removed, and a possible root is checked for attributes.
        const ItemTarget target(getPath(), m_origin);
        const std::wstring_view whole(target.get());
        std::wstring_view text = whole;
        while (!text.empty() && (text.back() == L'\\' || text.back() == L'/'))
            text.remove_suffix(1);
        const std::wstring plain(text);
        const bool drive = !plain.empty() && plain.back() == L':';
        const bool exists = (!plain.empty() && !drive && pathExists(plain.c_str())) ||
                            (text.size() != whole.size() && hasAttributes(target));
        found = exists ? 1 : 0;
    });
    return found;
}
