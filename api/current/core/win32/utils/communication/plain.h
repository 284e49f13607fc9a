#pragma once

// The function of this module that C takes as well.

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Sets whether the object table of a class answers load and dump requests. With `serve` nonzero it is
/// subscribed to the topic "ObjectManager<" class name ">", for example "ObjectManager<ScanItem>", which is
/// created if necessary; with 0 it is unsubscribed and releases the topic. Initially no table has a topic:
/// loading the library creates none. Repeating a call has no effect. When the library is unloaded, serving
/// ends before the tables are destroyed.
///
/// On such a topic any message other than a HashMessageW without a value is refused with 87.
///
/// Codes: 87 null name; 1168 no class of that name has a table.
SYSMAINT_API long ServeObjectRequests(const wchar_t* className, int serve);
SYSMAINT_C_END
