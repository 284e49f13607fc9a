#include "core/win32/utils/wiper/include/Filler.h"

#include <winioctl.h>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/Patience.h"
#include "core/win32/utils/paths/include/Removal.h"

Wiper::Filler::Filler(Wiper& wiper, const std::wstring& path)
    : m_wiper(wiper), m_path(path), m_target(m_path.c_str())
{
    m_file = patientlyOpened(OPEN_ALWAYS, FILE_ATTRIBUTE_HIDDEN, wiper.m_cancelEvent);
    const bool isNew = GetLastError() != ERROR_ALREADY_EXISTS;
    m_wasFound = !isNew;
    bool isOurs = false;
    try {
        BY_HANDLE_FILE_INFORMATION information{};
        if (!GetFileInformationByHandle(m_file.get(), &information)) {
            const DWORD code = GetLastError();
            FILE_DISPOSITION_INFO deletion{
                static_cast<BOOLEAN>(isNew)}; // an unknown file is not deleted by its name
            SetFileInformationByHandle(m_file.get(), FileDispositionInfo, &deletion, sizeof deletion);
            raiseCode(code);
        }
        m_identity = FileIdentity::of(information);
        if (!isNew && (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
            raiseCode(kStoppedOnSymlink);
        // Otherwise a user's own file, or one that has a second name, would be truncated.
        const bool isHidden = (information.dwFileAttributes & FILE_ATTRIBUTE_HIDDEN) != 0;
        if (information.nNumberOfLinks > 1 || (!isNew && !isHidden))
            raiseCode(ERROR_ALREADY_EXISTS);
        isOurs = true;
        // In a compressed folder zeros would take up no space.
        USHORT format = COMPRESSION_FORMAT_NONE;
        DWORD returned = 0;
        if ((information.dwFileAttributes & FILE_ATTRIBUTE_COMPRESSED) != 0 &&
            !DeviceIoControl(m_file.get(), FSCTL_SET_COMPRESSION, &format, sizeof format, nullptr, 0,
                             &returned, nullptr))
            raiseLastError();
    } catch (...) {
        if (isOurs)
            deleteFillerFile();
        throw;
    }
}

Wiper::Filler::~Filler()
{
    if (m_file.isValid())
        deleteFillerFile();
}

long Wiper::Filler::deleteFillerFile() noexcept
{
    // Truncate it while it is open: if somebody else opened it next, the volume would stay full, without room
    // even for the boot-time list. A failure here is retried below.
    FILE_END_OF_FILE_INFO end{};
    SetFileInformationByHandle(m_file.get(), FileEndOfFileInfo, &end, sizeof end);
    m_file.reset();
    const long code = boundary::statusFrame([&]() -> long {
        cutAndDelete();
        return ERROR_SUCCESS;
    });
    if (code == ERROR_SUCCESS || code == kAnotherFile)
        return code;
    // Delete it anyway if it could not be truncated, so that the volume does not stay full.
    const long left = boundary::statusFrame([&]() -> long {
        const auto isOurs = [this](HANDLE opened) { return FileIdentity::of(opened) == m_identity; };
        if (!isOurs(OpenedItself(m_target).get()))
            return kAnotherFile;
        if (!DeleteFileW(m_target))
            raiseLastError();
        removal::requireGone(m_target, nullptr, isOurs, kAnotherFile);
        return ERROR_SUCCESS;
    });
    if (isWorthScheduling(left))
        m_wiper.schedule(m_path);
    return left == ERROR_SUCCESS ? left : code;
}

void Wiper::Filler::cutAndDelete() const
{
    const auto isOurs = [this](HANDLE opened) { return FileIdentity::of(opened) == m_identity; };
    const auto requireOurs = [&](HANDLE opened) {
        if (!isOurs(opened))
            raiseCode(kAnotherFile);
    };
    {
        const Win32Handle file = patientlyOpened(OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        requireOurs(file.get());
        if (!SetEndOfFile(file.get()))
            raiseLastError();
    }
    removal::removeByName(
        m_target, false, nullptr, [&] { requireOurs(OpenedItself(m_target).get()); }, isOurs, kAnotherFile);
}

/// A link of that name would itself be opened, not its target.
Win32Handle Wiper::Filler::patientlyOpened(DWORD disposition, DWORD attributes, HANDLE cancelEvent) const
{
    for (Patience patience(cancelEvent);;) {
        Win32Handle file = openToDestroy(m_target, disposition, attributes | FILE_FLAG_OPEN_REPARSE_POINT);
        if (file.isValid())
            return file;
        if (!patience.isWorthAnotherTry(GetLastError()))
            raiseLastError();
    }
}

Wiper::Fillers::Fillers(Wiper& wiper, const std::wstring& path) : m_wiper(wiper), m_path(path)
{
    m_fillers.emplace_back(wiper, path);
    while (m_fillers.back().wasFound()) {
        const std::wstring next = nextPath();
        const DWORD attributes = GetFileAttributesW(Win32Path(next.c_str()));
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_HIDDEN) == 0)
            break;
        m_fillers.emplace_back(wiper, next);
    }
    goToEnd();
}

std::uint64_t Wiper::Fillers::readEnd()
{
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(get(), &size))
        raiseLastError();
    return m_end = static_cast<std::uint64_t>(size.QuadPart);
}

void Wiper::Fillers::goToEnd()
{
    if (!SetFilePointerEx(get(), {}, nullptr, FILE_END))
        raiseLastError();
    readEnd();
}

bool Wiper::Fillers::beginNext()
{
    constexpr std::uint32_t kMost = 65536; // of 4 GiB each
    const std::size_t count = m_fillers.size();
    while (m_fillers.size() == count) {
        try {
            m_fillers.emplace_back(m_wiper, nextPath());
        } catch (long code) {
            if (code == ERROR_DISK_FULL)
                return false;
            if (code != ERROR_ALREADY_EXISTS || m_number >= kMost)
                throw;
        }
    }
    goToEnd();
    return true;
}

long Wiper::Fillers::deleteFillerFiles() noexcept
{
    long result = ERROR_SUCCESS;
    for (Filler& filler : m_fillers) {
        const long code = filler.deleteFillerFile();
        result = result != ERROR_SUCCESS ? result : code;
    }
    return result;
}

/// "FreeSpaceFile2.qmx" and so on.
std::wstring Wiper::Fillers::nextPath()
{
    const std::size_t stem = m_path.find_last_of(L'.');
    return m_path.substr(0, stem) + std::to_wstring(++m_number) + m_path.substr(stem);
}
