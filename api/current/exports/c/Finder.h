#pragma once

#include "exports/c/Items.h"
#include "win32/scanengine/include/Notification.h"

/// Hands what a run finds to the caller's callback.
class Finder final : public INotifyHandler
{
public:
    Finder(sysmaint_scan_callback callback, void* context) noexcept : m_callback(callback, context) {}

    void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override
    {
        const cframes::Lent lent(items(), item);
        const sysmaint_found found{sizeof found,    notification.getFirst(),
                                   item->getType(), static_cast<std::int32_t>(notification.getValue()),
                                   item->getPath(), lent.get()};
        m_callback(&found);
    }
    [[nodiscard]] long codeOf(long code) const noexcept { return m_callback.codeOf(code); }

private:
    cframes::Callback<sysmaint_scan_callback> m_callback;
};
