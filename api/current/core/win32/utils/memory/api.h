#pragma once

#include "core/win32/utils/objectmanager/include/Export.h"

// What all utility functions have in common; see the `api.h` of each group.
//
// - They take plain types and have C linkage. Text is UTF-16, or UTF-8 in the functions whose name ends in A:
//   these fail with 1113 (ERROR_NO_UNICODE_TRANSLATION) when a text is not valid UTF-8, or when a result
//   cannot be expressed in it.
// - They return 0 or a Win32 code: 87 for a null pointer unless it is optional, and for a length beyond any
//   memory, 8 when memory runs out, otherwise the code of the function or the system. A failing call changes
//   none of its outputs.
// - Results of variable length are new buffers that utilsFreeMemory releases: a text with its terminator, a
//   list of texts with a further zero at its end, or records whose texts are in the same buffer.
// - An `int*` receives 0 or 1. A time is a FILETIME as a 64-bit number: units of 100 ns since 1601, UTC.
// - A cancel event may be null; when it is signalled the function ends with 1223.
// - They keep no state. Any number of threads may call them.

SYSMAINT_C_BEGIN
/// Releases a buffer that a utility function allocated. Null is allowed.
SYSMAINT_API void utilsFreeMemory(void* memory);
SYSMAINT_C_END
