#include "core/win32/utils/scanengine/include/ScanEngine.h"

void ScanEngine::appendRoot(const SharedPtr<ScanItem>& root)
{
    const std::wstring identifier = root->getIdentifier().getIdentifier();
    const std::wstring key = scanItemKey(m_name.c_str(), identifier.c_str());
    // Roots with the same path text may still differ, as the two views of a registry key do.
    for (unsigned number = 1;; ++number) {
        const std::wstring numbered = number == 1 ? key : key + L'*' + std::to_wstring(number);
        ScanItemHandle handle(scanItems().openOrCreate(numbered.c_str(), [&] { return root; }));
        SharedPtr<ScanItem> item;
        requireSuccess(scanItems().get(handle.get(), item));
        if (dynamic_cast<ScanPath*>(item.get()) == nullptr)
            raiseCode(ERROR_ALREADY_EXISTS);
        if (!isRegisteredAs(*item, identifier) || !root->isInterchangeable(*item))
            continue;
        const WriteLocker locker(m_lock);
        m_roots.push_back({std::move(handle), item});
        return;
    }
}

std::vector<ScanEngine::RootCopy> ScanEngine::copyRoots() const
{
    std::vector<RootCopy> roots;
    const ReadLocker locker(m_lock);
    roots.reserve(m_roots.size());
    for (const Root& root : m_roots)
        roots.push_back({root.handle.get(), root.item});
    return roots;
}

long ScanEngine::scanRoots(const char* place, HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                           const ScanOptions& options)
{
    if (!validator)
        throw Exception(place, ERROR_INVALID_ADDRESS);
    ScanOptions pathOptions;
    pathOptions.depthGiven = 1;
    pathOptions.depth = (options.depthGiven & 1U) != 0 ? options.depth : 1;
    pathOptions.reportFiles = options.reportFiles;
    pathOptions.reportFolders = options.reportFolders;

    std::optional<Exception>
        firstFailure; // a container that refuses access does not keep later roots from being walked
    long result = ERROR_SUCCESS;
    for (const RootCopy& root : copyRoots()) {
        if (isCancelled(cancelEvent))
            return ERROR_CANCELLED;
        SharedPtr<ScanItem> item;
        long code = scanItems().get(root.handle, item);
        if (code == ERROR_SUCCESS && item.get() != root.item.get())
            code = ERROR_INVALID_HANDLE; // the root was removed, and its number went to another item
        requireSuccess(place, code);
        auto& path = dynamic_cast<ScanPath&>(*item);
        path.receiveHandlers(m_provider);
        result = path.scanOn(cancelEvent, validator, pathOptions, &item, firstFailure);
        if (result == ERROR_CANCELLED)
            return result;
    }
    if (firstFailure)
        throw Exception(*firstFailure);
    return result;
}

void ScanEngine::clearRoots()
{
    std::vector<Root> dropped; // declared first, so released after unlocking
    const WriteLocker locker(m_lock);
    dropped.swap(m_roots);
}

void ScanEngine::clearHandlers()
{
    m_provider.clearNotifyHandlers();
    const ReadLocker locker(m_lock); // a copy of the roots would need memory, and this must not fail
    for (const Root& root : m_roots)
        dynamic_cast<ScanPath&>(*root.item).getNotifyProvider().clearNotifyHandlers();
}
