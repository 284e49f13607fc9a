#include "core/win32/utils/scanengine/include/ScanPath.h"

#include "core/win32/utils/objectmanager/include/LibraryCall.h"

#include <algorithm>
#include <atomic>
#include <optional>

constexpr char kScanPathHeader[] = "core\\win32\\utils\\scanengine\\include\\ScanPath.h";

namespace {
/// Waiting containers are registered under a name that no caller uses.
std::wstring walkName()
{
    static std::atomic<unsigned long long> count{0};
    return L"walk*" + std::to_wstring(count.fetch_add(1, std::memory_order_relaxed));
}
} // namespace

long ScanPath::scan(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                    const ScanOptions& options)
{
    const InsideLibrary inside;
    if (!validator)
        throw Exception(scanPlace(), ERROR_INVALID_ADDRESS);
    if (isCancelled(cancelEvent))
        return ERROR_CANCELLED;
    std::optional<Exception> firstFailure;
    const long result = scanOn(cancelEvent, validator, options, nullptr, firstFailure);
    if (result == ERROR_SUCCESS && firstFailure)
        throw Exception(*firstFailure);
    return result;
}

long ScanPath::scanOn(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                      const ScanOptions& options, const SharedPtr<ScanItem>* self,
                      std::optional<Exception>& firstFailure)
{
    clearResults();
    Walk walk{cancelEvent, validator, options, *this, {}, {}, {}};
    if (options.depth > m_level) {
        try {
            listInto(*this, walk);
        } catch (const ListingFailure& failure) {
            if (self != nullptr)
                reportFailure(walk, *self, failure);
            if (!failure.brokeOff)
                throw failure.reason;
            if (!firstFailure)
                firstFailure.emplace(failure.reason);
        }
    }

    while (lookUpNext(walk) && !walk.poll()) {
        const SharedPtr<ScanItem> item = walk.next.front().item;
        const long code = walk.next.front().code;
        walk.next.pop_front();
        requireSuccess(scanPlace(), code);
        auto* path = dynamic_cast<ScanPath*>(item.get());
        if (path == nullptr) // somebody closed our handle, and the number went to another item
            throw Exception(scanPlace(), ERROR_INVALID_HANDLE);
        if (options.depth <= path->m_level)
            continue;
        try {
            listInto(*path, walk);
        } catch (const ListingFailure& failure) {
            if (!firstFailure)
                firstFailure.emplace(failure.reason);
            reportFailure(walk, item, failure);
        }
    }
    return walk.cancelled ? ERROR_CANCELLED : ERROR_SUCCESS;
}

void ScanPath::reportFailure(Walk& walk, const SharedPtr<ScanItem>& item, const ListingFailure& failure)
{
    const std::uint32_t code = failure.reason.getCode();
    if (walk.root.m_provider.notifyAny([&] { return walk.poll(); }, code, kListingFailed, item) !=
        ERROR_SUCCESS)
        walk.cancelled = true;
}

bool ScanPath::report(Walk& walk, const SharedPtr<ScanItem>& item, std::uint32_t key)
{
    {
        const OutsideLibrary outside; // the validator may be the caller's
        if (!walk.validator->validate(*item))
            return false;
    }
    if (walk.purpose == Purpose::KeepLeaves) {
        const WriteLocker locker(walk.root.m_resultsLock);
        walk.root.m_leaves.push_back(item);
        return true;
    }
    if (walk.root.m_provider.notify([&] { return walk.poll(); }, 0, key, item) != ERROR_SUCCESS) {
        walk.cancelled = true;
        return false;
    }
    const bool container = key == kContainerFound;
    if (((container ? walk.options.reportFolders : walk.options.reportFiles) & 1U) != 0) {
        const WriteLocker locker(walk.root.m_resultsLock);
        (container ? walk.root.m_containers : walk.root.m_leaves).push_back(item);
    }
    return true;
}

void ScanPath::reportContainer(Walk& walk, const SharedPtr<ScanItem>& item, std::uint32_t level,
                               bool isLeftUnlisted)
{
    if (walk.purpose == Purpose::FindContainer) {
        walk.hasContainer = !dynamic_cast<const ScanPath&>(*item).isFoundLink();
        walk.cancelled = walk.hasContainer; // ends the listing
        return;
    }
    if (!report(walk, item, kContainerFound) || isLeftUnlisted || walk.options.depth <= level)
        return;
    walk.found.push_back(item);
}

void ScanPath::listInto(ScanPath& path, Walk& walk)
{
    try {
        path.list(walk);
    } catch (const ListingFailure&) {
        enqueueFound(walk); // what was found before the failure is walked anyway
        throw;
    }
    enqueueFound(walk);
}

// Looks up the containers at the front of the queue, many under one lock: its kernel calls are most of a
// container's cost. Returns false when none is waiting.
bool ScanPath::lookUpNext(Walk& walk)
{
    constexpr std::size_t kMost = 64;
    if (walk.next.empty() && !walk.queue.empty()) {
        const auto last =
            walk.queue.begin() + static_cast<std::ptrdiff_t>(std::min(kMost, walk.queue.size()));
        std::vector<void*> handles;
        handles.reserve(kMost);
        for (auto handle = walk.queue.begin(); handle != last; ++handle)
            handles.push_back(handle->get());
        std::vector<TakenContainer> taken(handles.size());
        auto next = taken.begin();
        auto handle = walk.queue.begin();
        scanItems().takeObjects(handles, [&](long code, const SharedPtr<ScanItem>& item) {
            *next++ = {code, item};
            if (code == ERROR_SUCCESS)
                static_cast<void>(handle->release()); // the table has closed it
            ++handle;
        });
        walk.queue.erase(walk.queue.begin(), last);
        walk.next.assign(taken.begin(), taken.end());
    }
    return !walk.next.empty();
}

// All containers of one listing are registered under one lock: its kernel calls are most of a container's
// cost.
void ScanPath::enqueueFound(Walk& walk)
{
    if (walk.found.empty() || walk.cancelled)
        return;
    primitives::placedStep(PLACE(kScanPathHeader, "ScanPath::enqueueFound", __LINE__), [&] {
        scanItems().registerObjects(
            walk.found,
            [](const SharedPtr<ScanItem>& item) {
                return scanItemKey(walkName().c_str(), item->getIdentifier().getIdentifier());
            },
            [&](void* handle) { walk.queue.push_back(ScanItemHandle(handle)); });
    });
    walk.found.clear();
}

int ScanPath::hasSubfolders(HANDLE cancelEvent)
{
    const InsideLibrary inside;
    const SharedPtr<IScanValidator> none;
    const ScanOptions options;
    Walk walk{cancelEvent, none, options, *this, {}, {}, {}};
    walk.purpose = Purpose::FindContainer;
    try {
        list(walk);
    } catch (const ListingFailure& failure) {
        if (!walk.hasContainer)
            throw Exception(failure.reason);
    }
    if (walk.cancelled && !walk.hasContainer)
        throw Exception(scanPlace(), ERROR_CANCELLED);
    return walk.hasContainer ? 1 : 0;
}

long ScanPath::getValues(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator)
{
    const InsideLibrary inside;
    if (!hasValues())
        throw Exception(scanPlace(), ERROR_CALL_NOT_IMPLEMENTED);
    if (!validator)
        throw Exception(scanPlace(), ERROR_INVALID_ADDRESS);
    clearResults();
    const ScanOptions options;
    Walk walk{cancelEvent, validator, options, *this, {}, {}, {}};
    walk.purpose = Purpose::KeepLeaves;
    if (walk.poll())
        return ERROR_CANCELLED;
    try {
        list(walk);
    } catch (const ListingFailure& failure) {
        throw Exception(failure.reason);
    }
    return walk.cancelled ? ERROR_CANCELLED : ERROR_SUCCESS;
}

void ScanPath::clearResults()
{
    Results containers;
    Results leaves;
    const WriteLocker locker(m_resultsLock);
    containers.swap(m_containers);
    leaves.swap(m_leaves);
}

long ScanPath::getResult(std::uint32_t key, std::size_t index, SharedPtr<ScanItem>& item) const
{
    const InsideLibrary inside;
    if (key != kContainerFound && key != kLeafFound)
        return ERROR_INVALID_PARAMETER;
    const ReadLocker locker(m_resultsLock);
    const Results& results = key == kContainerFound ? m_containers : m_leaves;
    if (index >= results.size())
        return ERROR_NO_MORE_ITEMS;
    item = results[index];
    return ERROR_SUCCESS;
}
