#pragma once

#include "core/win32/utils/ftp/include/FtpConnection.h"
#include "exports/c/CFrames.h"
#include "win32/scanengine/include/ScanItem.h"

/// The items that the C interface has handed out.
extern cframes::Table<sysmaint_item, ScanItem> items;

/// An account that a caller gives. Raises 87.
[[nodiscard]] inline sysmaint_ftp_account givenAccount(const sysmaint_ftp_account* account)
{
    const sysmaint_ftp_account copy = cframes::given(account);
    cframes::requireArguments(copy.reserved == 0 && copy.port <= 0xFFFF && copy.server != nullptr);
    return copy;
}
