#pragma once

#include "win32/scanengine/include/IScanValidator.h"
#include "win32/scanengine/include/NotifyProvider.h"
#include "win32/scanengine/include/ScanOptions.h"

/// A container that can be walked: the root of a scan, or a container on the way. Reached from a ScanItem
/// with dynamic_cast.
struct IScanPath
{
    virtual ~IScanPath() = default;
    /// Walks the container breadth-first on the calling thread and reports what `validator` (for everything
    /// DllGetScanValidator()) accepts to the handlers of getNotifyProvider: containers under key 1, leaves
    /// under key 0.
    ///
    /// A container is listed when `options.depth` exceeds its level. One that the validator refuses is not
    /// walked into, and neither is a link (for folders a name-surrogate reparse point, or one whose tag
    /// cannot be read), though it is reported. The root itself is not reported, and may be a link. Several
    /// scans of one path at a time share its results. A folder that would be fetched from elsewhere by being
    /// listed (FILE_ATTRIBUTE_RECALL_ON_OPEN, FILE_ATTRIBUTE_RECALL_ON_DATA_ACCESS) is reported and not
    /// listed, unless it is the root.
    ///
    /// Before a folder is listed, it and those from the root down are opened as themselves, and held without
    /// sharing their deletion until it is listed: meanwhile nobody can move, remove or swap them, the
    /// handlers neither. One that was swapped for a link before is not walked (681,
    /// ERROR_STOPPED_ON_SYMLINK), one that is gone is passed over. What remains: the folders above the root,
    /// and file systems that do not keep to sharing.
    ///
    /// A container that cannot be listed, or not to its end, is handed to the handlers under key 2 with the
    /// code as the notification's value; when none is registered there nothing happens. The root is so handed
    /// over by the scan of an engine only: who scans a path knows it.
    ///
    /// Returns 0, or 1223 when `cancelEvent` (may be null) ended it; it is polled before each container, each
    /// entry and each handler's call. Raises an Exception: 487 for an empty `validator`; 1168 when nothing is
    /// registered for an item's key; the system's code when the root cannot be opened, at once; the first
    /// code of a container further down that could not be, or of a listing that broke off, after everything
    /// else was walked; whatever a handler raises.
    virtual long scan(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                      const ScanOptions& options) = 0;
    /// The handlers of this path. Owned by the path.
    [[nodiscard]] virtual INotifyProvider& getNotifyProvider() noexcept = 0;
    /// 0 for a root, one more for each container further down.
    [[nodiscard]] virtual std::uint32_t getLevel() const noexcept = 0;
    /// Item `index` of what the last scan kept under `key` (1 containers, 0 leaves), in the order found.
    /// Returns 0, 87 for another key, or 259 past the last item.
    virtual long getResult(std::uint32_t key, std::size_t index, SharedPtr<ScanItem>& item) const = 0;
};
