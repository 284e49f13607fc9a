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
        const sysmaint_found found{sizeof found,    notification.getFirst(),
                                   item->getType(), static_cast<std::int32_t>(notification.getValue()),
                                   item->getPath(), m_lender.lend(item)};
        if (!m_callback.callFromOutside(&found))
            raiseCode(ERROR_CANCELLED); // the result is the callback's
    }
    [[nodiscard]] long codeOf(long code) const noexcept { return m_callback.codeOf(code); }

private:
    cframes::Lender<sysmaint_item, ScanItem> m_lender{items()};
    cframes::Callback<sysmaint_scan_callback> m_callback;
};
