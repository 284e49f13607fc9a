#pragma once

#include "core/win32/utils/ftp/include/FtpConnection.h"
#include "exports/c/CFrames.h"
#include "win32/scanengine/include/ScanItem.h"

/// The items that the C interface has handed out.
extern cframes::Table<sysmaint_item, ScanItem> items;

/// The options of a registry item or root; a bit without a meaning may be a mistyped one with. Raises 87.
[[nodiscard]] inline std::uint32_t givenRegistryOptions(std::uint32_t options)
{
    constexpr std::uint32_t kKnown =
        SYSMAINT_REGISTRY_READ_ONLY | SYSMAINT_REGISTRY_VIEW_64 | SYSMAINT_REGISTRY_VIEW_32;
    cframes::requireArguments((options & ~kKnown) == 0);
    return options;
}

/// An account that a caller gives. Raises 87.
[[nodiscard]] inline sysmaint_ftp_account givenAccount(const sysmaint_ftp_account* account)
{
    const sysmaint_ftp_account copy = cframes::given(account);
    cframes::requireArguments(copy.reserved == 0 && copy.port <= 0xFFFF && copy.server != nullptr);
    return copy;
}
