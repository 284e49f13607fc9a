#include "core/win32/registry/defragmenter/include/RDHiveItem.h"

#include <sddl.h>

#include <memory>

#include "core/win32/registry/defragmenter/include/HiveCopy.h"
#include "core/win32/registry/offline/include/OfflineFile.h"
#include "core/win32/registry/offline/include/OfflineSave.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/scanengine/include/File.h"

constexpr char kRDHiveItemHeader[] = "core\\win32\\registry\\defragmenter\\include\\RDHiveItem.h";

namespace {
/// Lets only the system's account and administrators open a file: a hive may hold what its users must not
/// see. Has no effect on a file system without access lists.
void protect(const wchar_t* path)
{
    PSECURITY_DESCRIPTOR made = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;FA;;;SY)(A;;FA;;;BA)", SDDL_REVISION_1,
                                                              &made, nullptr))
        raiseLastError();
    const std::unique_ptr<void, decltype(&LocalFree)> descriptor(made, &LocalFree);
    if (SetFileSecurityW(path, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, made))
        return;
    const DWORD code = GetLastError();
    if (code != ERROR_INVALID_FUNCTION && code != ERROR_NOT_SUPPORTED)
        raiseCode(code);
}

constexpr std::wstring_view kMark = L".sysmaint"; // in the names of our files

/// Whether a temporary file is named after one of these: "new" or "old", what the system added, and the mark.
bool isMarkedName(std::wstring_view name)
{
    constexpr std::size_t kPrefix = 3;
    if (!(name.starts_with(L"new") || name.starts_with(L"old")) || !name.ends_with(kMark))
        return false;
    name = name.substr(kPrefix, name.size() - kPrefix - kMark.size());
    return !name.empty() && name.find_first_not_of(L"0123456789ABCDEFabcdef") == std::wstring_view::npos;
}

/// A file with a new name, deleted by the destructor at the latest, or by a later analysis.
class TemporaryFile
{
public:
    /// Creates an empty one. Raises the bare code, an Exception, or std::bad_alloc.
    TemporaryFile(const wchar_t* folder, const wchar_t* prefix) : m_path(makeFile(folder, prefix))
    {
        try {
            m_item = std::make_unique<File>(path(), 0);
            protect(m_target);
        } catch (...) {
            DeleteFileW(m_target);
            throw;
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile()
    {
        if (m_isDeleted || DeleteFileW(m_target)) // this needs no memory
            return;
        try {
            m_item->deleteItem(); // retries while others hold the file
        } catch (...) {           // NOLINT(bugprone-empty-catch): the earlier failure is raised
        }
    }

    [[nodiscard]] const wchar_t* path() const noexcept { return m_path.c_str(); }
    [[nodiscard]] std::uint64_t size() const { return m_item->getSize(); }
    void remove()
    {
        m_item->deleteItem();
        m_isDeleted = true;
    }

private:
    [[nodiscard]] static std::wstring makeFile(const wchar_t* folder, const wchar_t* prefix)
    {
        wchar_t made[MAX_PATH]{}; // NOLINT(modernize-avoid-c-arrays): the call's own limit
        if (GetTempFileNameW(folder, prefix, 0, made) == 0)
            raiseLastError();
        try {
            // It gets a name that tells whose it is.
            const std::wstring path = settledPath(made);
            return offline::moveToTemporaryName(path, path.substr(0, path.rfind(L'.')).append(kMark));
        } catch (...) {
            DeleteFileW(made);
            throw;
        }
    }

    std::wstring m_path;
    Win32Path m_target{m_path.c_str()};
    std::unique_ptr<File> m_item;
    bool m_isDeleted = false;
};

/// Copies a live hive; a failure is raised again with its report as the message.
void copyHive(const wchar_t* source, const wchar_t* destination, HANDLE stopEvent)
{
    const char* const place = PLACE(kRDHiveItemHeader, "RDHiveItem::analyze", 174);
    try {
        HiveCopy(source, destination, stopEvent);
    } catch (const Exception& raised) {
        throw Exception(place, raised.getText(), raised.getCode());
    } catch (...) {
        throw Exception(place, static_cast<unsigned long>(boundary::codeOfCurrentException()));
    }
}

void saveCompact(const wchar_t* source, const wchar_t* destination)
{
    const long code = primitives::codeOfStep([&] { offline::saveCompact(source, destination); });
    if (code == ERROR_BADDB || code == ERROR_REGISTRY_CORRUPT || code == ERROR_NOT_REGISTRY_FILE)
        throw Exception(PLACE(kRDHiveItemHeader, "RDHiveItem::analyze", 181),
                        static_cast<unsigned long>(code)); // it has no root key to open
    requireSuccess(PLACE(kRDHiveItemHeader, "RDHiveItem::analyze", 185), code);
}
} // namespace

void RDHiveItem::deleteLeftovers() noexcept
{
    try {
        const CachedPath folder(L"%user_temp%", 1);
        offline::deleteLeftovers(settledPath(joinPath(folder.getPath(), L"*.sysmaint.*.tmp")), &isMarkedName);
    } catch (...) { // NOLINT(bugprone-empty-catch): the next analysis tries again
    }
}

void RDHiveItem::analyze(HANDLE stopEvent)
{
    using primitives::placedStep;
    std::unique_ptr<TemporaryFile> compacted;
    std::unique_ptr<TemporaryFile> copy;
    placedStep(PLACE(kRDHiveItemHeader, "RDHiveItem::analyze", __LINE__), [&] {
        m_hive.path = m_drives.resolve(m_hive.path);
        const CachedPath folder(L"%user_temp%", 1);
        compacted = std::make_unique<TemporaryFile>(folder.getPath(), L"new");
        copy = std::make_unique<TemporaryFile>(folder.getPath(), L"old");
    });
    copyHive(m_hive.path.c_str(), copy->path(), stopEvent);
    if (isCancelled(stopEvent))
        throw Exception(PLACE(kRDHiveItemHeader, "RDHiveItem::analyze", __LINE__), ERROR_CANCELLED);
    saveCompact(copy->path(), compacted->path());
    placedStep(PLACE(kRDHiveItemHeader, "RDHiveItem::analyze", __LINE__), [&] {
        const std::uint64_t oldSize = copy->size();
        const std::uint64_t newSize = compacted->size();
        copy->remove(); // a hive whose copy stays has failed
        compacted->remove();
        m_results.addResult(m_hive.mountName.c_str(), m_hive.path.c_str(), oldSize, newSize);
    });
}

void RDHiveItem::addFailure(std::uint32_t code, const wchar_t* report)
{
    m_results.addFailure(m_hive.mountName.c_str(), m_hive.path.c_str(), code, report);
}
