#pragma once

#include "win32/scanengine/include/IScanValidator.h"
#include "win32/scanengine/include/NotifyProvider.h"
#include "win32/scanengine/include/ScanOptions.h"

/// A container that can be walked: the root of a scan, or a container on the way. Reached from a ScanItem
/// with dynamic_cast.
struct IScanPath
{
    virtual ~IScanPath() = default;
    /// Walks the container breadth-first on the calling thread and reports what `validator` (may be empty:
    /// everything) accepts to the handlers of getNotifyProvider: containers under key 1, leaves under key 0.
    ///
    /// A container is listed when `options.depth` exceeds its level. One that the validator refuses is not
    /// walked into, and neither is a link (for folders a name-surrogate reparse point, or one whose tag
    /// cannot be read), though it is reported. The root itself is not reported, and may be a link. Several
    /// scans of one path at a time share its results.
    ///
    /// Returns 0, or 1223 when `cancelEvent` (may be null) ended it; it is polled before each container, each
    /// entry and each handler's call. Raises an Exception: 1168 when nothing is registered for an item's key;
    /// the system's code when the root cannot be opened, at once; the first code of a container further down
    /// that could not be, or of a listing that broke off, after everything else was walked; whatever a
    /// handler raises.
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
