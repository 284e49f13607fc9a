#include "TreeListing.h"

#include "Console.h"

#include "core/win32/utils/scanengine/api.h"

namespace {
class Lister : public INotifyHandler
{
public:
    Lister(TreeListing& listing, bool filesOnly, bool withLinked)
        : m_listing(listing), m_filesOnly(filesOnly), m_withLinked(withLinked)
    {
    }

    void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override
    {
        const HeapStringW path = item->getPath();
        if (notification.getFirst() == kListingFailed) {
            m_listing.failures.push_back({path.c_str(), static_cast<long>(notification.getValue())});
            return;
        }
        if (notification.getFirst() == kContainerFound) {
            m_listing.entries.push_back({path, L"", true, m_filesOnly});
            m_listing.identities.push_back(m_filesOnly ? FileIdentity() : find(path.c_str()).identity);
            return;
        }
        const std::size_t slash = path.find_last_of(L'\\');
        m_listing.entries.push_back({path.substr(slash + 1), path.substr(0, slash), false, false});
        addFile(path.c_str(), dynamic_cast<const IFile*>(item.get()));
    }

private:
    FoundFile find(const std::wstring& path)
    {
        const FoundFile found = findFile(literalPath(path));
        if (found.names == 0 && found.code != ERROR_FILE_NOT_FOUND) // a file that is gone is not unknown
            m_listing.failures.push_back({path, found.code});
        return found;
    }

    void addFile(const std::wstring& path, const IFile* file)
    {
        const FoundFile found = find(path);
        m_listing.identities.push_back(found.identity);
        if (found.names > 1) {
            m_listing.linked.push_back(path);
            m_listing.entries.back().skip = !m_withLinked;
        }
        if (m_listing.entries.back().skip)
            return;
        ++m_listing.files;
        m_listing.bytes += file != nullptr ? file->getSize() : 0;
    }

    TreeListing& m_listing;
    bool m_filesOnly;
    bool m_withLinked;
};
} // namespace

FoundFile findFile(const std::wstring& literal)
{
    const OwnedHandle file(::CreateFileW(
        literal.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        nullptr, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    BY_HANDLE_FILE_INFORMATION info;
    if (file.get() == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(file.get(), &info))
        return {0, static_cast<long>(GetLastError()), {}};
    const bool folder = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return {folder || info.nNumberOfLinks <= 1 || isLink(literal) ? 1 : info.nNumberOfLinks,
            ERROR_SUCCESS,
            {(static_cast<std::uint64_t>(info.nFileIndexHigh) << 32U) | info.nFileIndexLow,
             info.dwVolumeSerialNumber, true}};
}

std::wstring pathOf(const DirectoryStackEntry& entry)
{
    return std::wstring(entry.isDirectory ? entry.path : entry.directory + L"\\" + entry.path);
}

long listTree(const std::wstring& root, const SharedPtr<IScanValidator>& validator, bool filesOnly,
              bool withLinked, TreeListing& listing)
{
    void* engine = CreateFileScanEngine(L"sysmaint wipe");
    if (engine == INVALID_HANDLE_VALUE)
        return static_cast<long>(GetLastError());
    Lister lister(listing, filesOnly, withLinked);
    ScanOptions options;
    options.depthGiven = 1;
    options.depth = 65535;
    long code = ERROR_SUCCESS;
    for (const unsigned long key : {kContainerFound, kLeafFound, kListingFailed})
        if (code == ERROR_SUCCESS)
            code = FSEngineRegisterHandler(engine, lister, key, 0, 0);
    if (code == ERROR_SUCCESS)
        code = FSEngineAddPath(engine, root.c_str(), 0);
    if (code == ERROR_SUCCESS)
        code = FSEngineScan(engine, cancelEvent(), validator, options);
    CloseFileScanEngine(engine);
    return code;
}
