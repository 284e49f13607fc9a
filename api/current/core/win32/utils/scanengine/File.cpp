#include "core/win32/utils/scanengine/include/File.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "core/win32/utils/objectmanager/include/FileTransfer.h"
#include "core/win32/utils/objectmanager/include/LibraryCall.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/Removal.h"

constexpr char kFileHeader[] = "core\\win32\\utils\\scanengine\\include\\File.h";

using namespace primitives;

namespace {
/// Windows does not replace a hidden or system file by a plain one (5) unless these attributes are removed
/// first. A read-only file is refused.
Win32Handle createAlways(const wchar_t* target)
{
    const auto create = [target] {
        return Win32Handle(
            CreateFileW(target, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    };
    constexpr DWORD kMarks = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    constexpr DWORD kOthers =
        FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    Win32Handle file = create();
    if (file.isValid() || GetLastError() != ERROR_ACCESS_DENIED)
        return file;
    const DWORD attributes = GetFileAttributesW(target);
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & kMarks) != 0 && (attributes & kOthers) == 0 &&
        SetFileAttributesW(target, attributes & ~kMarks)) {
        file = create();
        if (!file.isValid()) {
            const DWORD code = GetLastError();
            SetFileAttributesW(target, attributes);
            SetLastError(code);
        }
        return file;
    }
    SetLastError(ERROR_ACCESS_DENIED);
    return file;
}
} // namespace

File::File(const wchar_t* path, int expand) : ScanItem(kFileItem)
{
    placedStep(PLACE(kFileHeader, "File::File", __LINE__), [&] { setPath(path, expand); });
}

void File::setPath(const wchar_t* path, int expand)
{
    const InsideLibrary inside;
    ScanItem::setPath(path, expand);
    settle();
    // What was read from the old file does not apply to the new one; data that was set applies to any file.
    if (m_wasRead) {
        keepData(nullptr, 0);
        m_hasData = false;
    }
}

void File::settle()
{
    m_foundSize.reset();
    m_origin = PathOrigin();
    placedStep(PLACE(kFileHeader, "File::setPath", __LINE__), [&] {
        try {
            m_origin = PathOrigin(path().view());
        } catch (...) {
            ScanItem::setPath(L"", 0); // the text alone could come to mean something else
            throw;
        }
    });
}

bool File::isInterchangeable(const ScanItem& filed) const
{
    const InsideLibrary inside;
    const auto* other = dynamic_cast<const File*>(&filed);
    return other != nullptr &&
           m_origin.settled(path().view()) == other->m_origin.settled(other->path().view());
}

void File::create()
{
    const InsideLibrary inside;
    const Content data = content();
    store(data.data, data.size);
}

void File::write(const void* data, unsigned long long size)
{
    const InsideLibrary inside;
    Blob copy;
    placedStep(PLACE(kFileHeader, "File::write", __LINE__), [&] {
        copy.allocate(size);
        if (size != 0)
            std::memcpy(copy.getData(), data, static_cast<std::size_t>(size));
    });
    store(copy.getData(), size);
    keepData(copy.release(), size);
}

void File::store(const void* data, unsigned long long size) const
{
    const ItemTarget target(getPath(), m_origin);
    HeldFolders held;
    placedStep(PLACE(kFileHeader, "File::create", __LINE__), [&] {
        m_origin.holdParents(held, path().view());
        if (ItemLook::at(target).isLink) // the call would empty its target
            raiseCode(kStoppedOnSymlink);
    });
    const Win32Handle file = createAlways(target);
    if (!file.isValid())
        throw Exception(PLACE(kFileHeader, "File::create", __LINE__));
    requireSuccess(PLACE(kFileHeader, "File::create", __LINE__), filetransfer::write(file.get(), data, size));
}

void File::deleteItem()
{
    const InsideLibrary inside;
    const ItemTarget target(getPath(), m_origin);
    HeldFolders held;
    placedStep(PLACE(kFileHeader, "File::deleteItem", __LINE__), [&] {
        m_origin.holdParents(held, path().view());
        const auto look = [&] {
            const ItemLook now = ItemLook::at(target);
            if (now.exists() && now.isFolder())
                raiseCode(ERROR_ACCESS_DENIED); // what the call returns for a folder
        };
        look();
        removal::removeByName(target, false, nullptr, look, [](HANDLE) { return true; });
    });
}

int File::exists() const
{
    const InsideLibrary inside;
    int found = 0;
    placedStep(PLACE(kFileHeader, "File::exists", __LINE__),
               [&] { found = pathExists(ItemTarget(getPath(), m_origin)) ? 1 : 0; });
    return found;
}

unsigned long long File::getSize() const
{
    const InsideLibrary inside;
    if (m_foundSize)
        return *m_foundSize;
    WIN32_FILE_ATTRIBUTE_DATA data;
    const ItemTarget target(getPath(), m_origin);
    if (!GetFileAttributesExW(target, GetFileExInfoStandard, &data))
        throw Exception(PLACE(kFileHeader, "File::getSize", __LINE__));
    return (static_cast<unsigned long long>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
}

const void* File::getData(unsigned long long& size)
{
    const InsideLibrary inside;
    const WriteLocker locker(m_lock);
    if (!m_hasData)
        readData();
    size = m_size;
    return m_data;
}

void File::readData()
{
    const ItemTarget source(getPath(), m_origin);
    HeldFolders held;
    placedStep(PLACE(kFileHeader, "File::getData", __LINE__), [&] {
        m_origin.holdParents(held, path().view());
        const ItemLook now = ItemLook::at(source);
        if (now.isLink) // the call would create a missing target
            raiseCode(kStoppedOnSymlink);
        if (now.exists() && isFetchedOnAccess(now.attributes))
            raiseCode(ERROR_FILE_OFFLINE);
    });
    // Opened so that a missing file is created: a caller that requests a file's data gets one.
    const Win32Handle file(CreateFileW(source, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER length{};
    if (!file.isValid() || !GetFileSizeEx(file.get(), &length))
        throw Exception(PLACE(kFileHeader, "File::getData", __LINE__));
    const auto bytes = static_cast<unsigned long long>(length.QuadPart);
    Blob content;
    placedStep(PLACE(kFileHeader, "File::getData", __LINE__), [&] { content.allocate(bytes); });
    unsigned long long done = 0; // less if the file became shorter meanwhile: then that is its content
    requireSuccess(PLACE(kFileHeader, "File::getData", __LINE__),
                   filetransfer::read(file.get(), content.getData(), bytes, done));
    keepData(content.release(), done);
    m_wasRead = true;
}

void File::setData(const void* data, unsigned long long size)
{
    const InsideLibrary inside;
    placedStep(PLACE(kFileHeader, "File::setData", __LINE__), [&] {
        if (data == nullptr && size != 0)
            raiseCode(ERROR_INVALID_PARAMETER);
        keepData(data != nullptr ? processheap::copy(data, static_cast<std::size_t>(size), 1) : nullptr,
                 size);
    });
}

File::Content File::content() const noexcept
{
    const ReadLocker locker(m_lock);
    return {m_data, m_hasData ? m_size : 0, m_hasData};
}

void File::keepData(void* data, unsigned long long size) noexcept
{
    processheap::release(m_data);
    m_data = data;
    m_size = size;
    m_hasData = true;
    m_wasRead = false;
}

long File::dump(unsigned long code, IOutputByteStream& stream) const
{
    const InsideLibrary inside;
    ScanItem::dump(code, stream);
    placedStep(PLACE(kFileHeader, "File::dump", __LINE__), [&] {
        const Content data = content();
        writeU32(stream, data.isKnown ? 1 : 0);
        if (data.isKnown)
            writeBlob(stream, data.data, data.size);
    });
    return ERROR_SUCCESS;
}

long File::load(unsigned long code, IInputByteStream& stream)
{
    const InsideLibrary inside;
    KeptPath kept(*this);
    ScanItem::load(code, stream);
    placedStep(PLACE(kFileHeader, "File::load", __LINE__), [&] {
        PathOrigin origin = (code & kStatePath) != 0 ? PathOrigin(path().view()) : m_origin;
        const bool hasData = readU32(stream) != 0;
        Blob data;
        if (hasData)
            data.read(stream);
        kept.release();
        m_origin = std::move(origin);
        m_foundSize.reset();
        const std::size_t size = data.getSize();
        keepData(hasData ? data.release() : nullptr, hasData ? size : 0);
        m_hasData = hasData;
    });
    return ERROR_SUCCESS;
}

bool pathExists(const wchar_t* path)
{
    WIN32_FIND_DATAW data;
    const Win32Path target(path);
    const FindHandle search(FindFirstFileW(target, &data));
    if (search.isValid()) {
        // A search takes "report." as a pattern that matches "report", so the name found is checked too.
        const std::wstring_view text(path);
        if (text.empty() || text.back() != L'.')
            return true;
        const std::wstring_view name = text.substr(text.find_last_of(L"\\/:") + 1);
        if (name == L"." || name == L"..")
            return true;
        do {
            if (CompareStringOrdinal(data.cFileName, -1, name.data(), static_cast<int>(name.size()), TRUE) ==
                CSTR_EQUAL)
                return true;
        } while (FindNextFileW(search.get(), &data));
        if (const DWORD code = GetLastError(); code != ERROR_NO_MORE_FILES)
            raiseCode(code);
        return false;
    }
    switch (const DWORD code = GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_NO_MORE_FILES:
    case ERROR_DIRECTORY: // what should be its folder is a file
        return false;
    default:
        raiseCode(code);
    }
}
