#pragma once

#include "core/win32/utils/objectmanager/include/Export.h"

/// What a salvage of a hive file omitted.
enum HiveLossKind SYSMAINT_UNSIGNED_LONG
{
    kLostBaseBlock = 0, ///< the file's header is wrong; other sources were used instead where there were any
    kLostBin = 1,       ///< a part of the file; items in it that were referenced are recorded separately
    kLostKey = 2,       ///< a sub-key with everything below it; also one that another parent has, or that has
                        ///< the name of one before it but for case
    kLostKeyList = 3,   ///< sub-keys
    kLostValue = 4,     ///< a value; also one that has the name of one before it but for case
    kLostValueList = 5, ///< values
    kLostData = 6,      ///< a value, because its data is lost
    kLostClass = 7,     ///< the class name
    kLostSecurity = 8,  ///< the security descriptor: the key got that of its parent
    kLostCount = 9,     ///< nothing but a wrong count of sub-keys or values: what their list holds was read
    kLostParent = 10    ///< nothing but the parent that a sub-key names: it was read where it is listed
};

/// One omitted place.
struct HiveLoss
{
    unsigned long kind;   ///< a HiveLossKind
    unsigned long offset; ///< in the file, where the wrong bytes are, or its size for those missing at its
                          ///< end; 0xFFFFFFFF: nowhere in it
    /// The key it belongs to, below the root; empty for the root and the whole file. Where a name contains a
    /// backslash or a zero, which no path can express, it is the key above.
    const wchar_t* key;
};
