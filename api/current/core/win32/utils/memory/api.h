#pragma once

#include "core/win32/utils/objectmanager/include/Api.h"

// What all utility functions have in common; see the `api.h` of each group.
//
// - They take plain types and have C linkage. Text is UTF-16, and UTF-8 in the functions whose name ends in
// A:
//   these fail with 1113 (ERROR_NO_UNICODE_TRANSLATION) when a text is not valid UTF-8, or when a result
//   cannot be written as such.
// - They return 0 or a Win32 code: 87 when a pointer is null that is not said to be optional, or a length is
//   more than any memory holds, 8 when memory
//   is short, otherwise what the function or the system says. A call that fails changes none of its outputs.
// - Results of any length are new buffers that utilsFreeMemory gives back: a text with its terminator, a list
//   of texts with a further zero at its end, or records whose texts stand in the same buffer.
// - An `int*` receives 0 or 1. A time is a FILETIME as a 64-bit number: units of 100 ns since 1601, UTC.
// - A cancel event may be null; when it is signalled the function ends with 1223.
// - They keep no state. Any number of threads may call them.

extern "C" {
/// Gives back a buffer that a utility function allocated. Null is allowed.
SYSMAINT_API void utilsFreeMemory(void* memory);
}
