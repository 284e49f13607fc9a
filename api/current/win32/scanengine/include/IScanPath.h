#pragma once

#include "win32/scanengine/include/IScanValidator.h"
#include "win32/scanengine/include/NotifyProvider.h"
#include "win32/scanengine/include/ScanOptions.h"

/// A container that can be walked: the root of a scan, or a container below it. Reached from a ScanItem with
/// dynamic_cast.
struct IScanPath
{
    virtual ~IScanPath() = default;
    /// Walks the container breadth-first on the calling thread. Reports what `validator` accepts to the
    /// handlers of getNotifyProvider: containers under key 1, leaves under key 0. DllGetScanValidator()
    /// accepts everything.
    ///
    /// A container is listed when `options.depth` exceeds its level. Containers that the validator refuses
    /// are not walked into. Links are reported but not walked into (for folders: name-surrogate reparse
    /// points, and those whose tag cannot be read). The root itself is not reported, and may be a link.
    /// Concurrent scans of one path share its results. A folder that listing would fetch from elsewhere
    /// (FILE_ATTRIBUTE_RECALL_ON_OPEN, FILE_ATTRIBUTE_RECALL_ON_DATA_ACCESS) is reported and not listed,
    /// unless it is the root.
    ///
    /// Before a folder is listed, it and all folders from the root down are opened without following links,
    /// and held without delete sharing until it is listed: meanwhile nobody, handlers included, can move,
    /// remove or swap them. A folder that became a link before that is not walked (681,
    /// ERROR_STOPPED_ON_SYMLINK); one that is gone is skipped. Not protected: the folders above the root, and
    /// file systems that ignore share modes.
    ///
    /// A container that cannot be listed completely is passed to the handlers under key 2, with the code as
    /// the notification's value; without a handler there, nothing happens. The root is passed this way only
    /// by an engine's scan: the caller of this function knows the root.
    ///
    /// Returns 0, or 1223 when `cancelEvent` (an event's handle, or null) ended it; it is polled before each
    /// container, each entry and each handler call. Raises an Exception: 487 for an empty `validator`; 1168
    /// when no handler is registered for an item's key; the system's code at once when the root cannot be
    /// opened; after everything else was walked, the first code of a container further down that could not be
    /// opened or whose listing broke off; anything a handler raises.
    virtual long scan(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                      const ScanOptions& options) = 0;
    /// The handlers of this path. Owned by the path.
    [[nodiscard]] virtual INotifyProvider& getNotifyProvider() noexcept = 0;
    /// 0 for a root, plus one for each container further down.
    [[nodiscard]] virtual std::uint32_t getLevel() const noexcept = 0;
    /// Item `index` of what the last scan kept under `key` (1 containers, 0 leaves), in the order found.
    /// Returns 0, 87 for another key, or 259 past the last item.
    virtual long getResult(std::uint32_t key, std::size_t index, SharedPtr<ScanItem>& item) const = 0;
    /// Nonzero when the container has at least one container directly below it that is no link; stops at the
    /// first. Calls no handler and keeps the results. Raises an Exception: 1223, or the system's code when
    /// the container cannot be listed, or not far enough to tell.
    [[nodiscard]] virtual int hasSubfolders(HANDLE cancelEvent) = 0;
    /// For registry keys: keeps the values of this key alone that `validator` accepts as the results
    /// (getResult with key 0), in place of those of the last scan. Calls no handler. Returns 0 or 1223;
    /// raises an Exception: 120 for a container that is no key, 487 for an empty `validator`, and as scan
    /// does.
    virtual long getValues(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator) = 0;
};
