#include "core/win32/utils/wiper/include/WipeTarget.h"

#include <string>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/Patience.h"
#include "core/win32/utils/paths/include/Removal.h"

namespace {
// Not every platform header names these.
constexpr auto kDispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21); // FileDispositionInfoEx
constexpr DWORD kNotOnClose = 0x8;  // FILE_DISPOSITION_FLAG_ON_CLOSE without FILE_DISPOSITION_FLAG_DELETE
constexpr DWORD kPosixDelete = 0x3; // FILE_DISPOSITION_FLAG_DELETE, FILE_DISPOSITION_FLAG_POSIX_SEMANTICS

constexpr DWORD kGuarding = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

} // namespace

Win32Handle openToDestroy(const wchar_t* target, DWORD disposition, DWORD flags) noexcept
{
    Win32Handle file(CreateFileW(target, GENERIC_ALL, 0, nullptr, disposition, flags, nullptr));
    if (!file.isValid() && GetLastError() == ERROR_ACCESS_DENIED)
        file.reset(CreateFileW(target, GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, disposition, flags,
                               nullptr));
    return file;
}

WipeTarget::WipeTarget(const wchar_t* target) : m_target(target)
{
    const OpenedItself found(target);
    m_identity = FileIdentity::of(found.get());
    m_isLink = found.isLink();
    m_isFolder = found.isFolder();
    m_attributes = found.attributes();
    // If its tag cannot be read, it may be no link and would be deleted without being overwritten.
    FILE_ATTRIBUTE_TAG_INFO tag;
    if (m_isLink && !GetFileInformationByHandleEx(found.get(), FileAttributeTagInfo, &tag, sizeof tag))
        raiseLastError();
    // A failure shows in the next step.
    if ((found.attributes() & (m_isLink ? FILE_ATTRIBUTE_READONLY : kGuarding)) != 0)
        SetFileAttributesW(target, FILE_ATTRIBUTE_NORMAL);
}

void WipeTarget::remove(HANDLE cancelEvent) const
{
    removal::removeByName(
        m_target, m_isFolder, cancelEvent, [this] { requireUnchanged(); },
        [this](HANDLE opened) { return FileIdentity::of(opened) == m_identity; }, kAnotherFile);
}

void WipeTarget::requireUnchanged() const
{
    const OpenedItself found(m_target);
    if (found.isLink() && !m_isLink)
        raiseCode(kStoppedOnSymlink);
    requireSame(found.get());
}

void WipeTarget::requireGone(HANDLE cancelEvent) const
{
    removal::requireGone(
        m_target, cancelEvent, [this](HANDLE opened) { return FileIdentity::of(opened) == m_identity; },
        kAnotherFile);
}

void WipeTarget::requireSame(HANDLE opened) const
{
    if (FileIdentity::of(opened) != m_identity)
        raiseCode(kAnotherFile);
}

Win32Handle WipeTarget::open(HANDLE cancelEvent) const
{
    constexpr DWORD kFlags = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE;
    Win32Handle file = openToDestroy(m_target, OPEN_EXISTING, kFlags);
    for (Patience patience(cancelEvent); !file.isValid();) {
        if (!patience.isWorthAnotherTry(GetLastError()))
            raiseLastError();
        requireUnchanged();
        file = openToDestroy(m_target, OPEN_EXISTING, kFlags);
    }
    try {
        requireSame(file.get());
    } catch (...) {
        keep(file);
        throw;
    }
    return file;
}

bool WipeTarget::close(Win32Handle& file) const noexcept
{
    DWORD flags = kPosixDelete;
    const BOOL goes = SetFileInformationByHandle(file.get(), kDispositionInfoEx, &flags, sizeof flags);
    file.reset();
    return goes != FALSE;
}

/// Closes a file that was opened to be deleted, and keeps it in place.
void WipeTarget::keep(Win32Handle& file) const noexcept
{
    DWORD flags = kNotOnClose;
    if (SetFileInformationByHandle(file.get(), kDispositionInfoEx, &flags, sizeof flags))
        return file.reset();
    // Systems before Windows 10 cannot undo the deletion: a second name outlives the deletion of the first.
    try {
        const std::wstring second = std::wstring(m_target) + L".kept";
        if (!CreateHardLinkW(second.c_str(), m_target, nullptr))
            return file.reset();
        const bool isSame =
            FileIdentity::of(OpenedItself(second.c_str()).get()) == FileIdentity::of(file.get());
        file.reset();
        if (isSame)
            MoveFileExW(second.c_str(), m_target, 0); // if the name is taken, the second stays
        else
            DeleteFileW(second.c_str());
    } catch (...) {
        file.reset();
    }
}
