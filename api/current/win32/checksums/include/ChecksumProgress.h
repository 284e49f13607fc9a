#pragma once

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Receives the bytes done, the bytes in all and the caller's context.
typedef void (*ChecksumProgress)(uint64_t done, uint64_t size, void* context);
SYSMAINT_C_END
