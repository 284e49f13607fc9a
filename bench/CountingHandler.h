#pragma once

#include "core/win32/utils/scanengine/api.h"

/// The cheapest possible handler.
struct CountingHandler : INotifyHandler
{
    void onNotify(const Notification& /*notification*/, const SharedPtr<ScanItem>& /*item*/) override
    {
        ++count;
    }
    unsigned long long count = 0;
};
