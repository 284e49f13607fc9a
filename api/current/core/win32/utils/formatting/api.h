#pragma once

#include "core/win32/utils/memory/api.h"

// Numbers, times and codes as texts for people, by the calling user's locale. core/win32/utils/memory/api.h
// describes what all utility functions have in common.

SYSMAINT_C_BEGIN
/// "512 bytes", "1.9 MiB": steps of 1,024. Cut off, not rounded: it never shows more than there is.
///
/// @param decimals  0 to 3; whole bytes have none
/// @return 0, 87, 8
SYSMAINT_API long FormatByteSize(uint64_t bytes, unsigned int decimals, wchar_t** text);

/// "1,234,567".
///
/// @return 0, 87, 8
SYSMAINT_API long FormatCount(uint64_t number, wchar_t** text);

/// "7.2 s", "4 min 05 s", "3 h 07 min", "2 d 04 h"; cut off, not rounded.
///
/// @return 0, 87, 8
SYSMAINT_API long FormatDuration(uint64_t milliseconds, wchar_t** text);

/// "42.1%", cut off: 100.0% only appears when all is done.
///
/// @return 0, 87 (also a `whole` of 0), 534 (too large), 8
SYSMAINT_API long FormatPercent(uint64_t part, uint64_t whole, wchar_t** text);

/// Date and time of day, in the local time of that day (daylight saving by the rules of that day).
///
/// @param longForm  0: short date, hours and minutes; otherwise long date, with seconds
/// @return 0, 87 (also an invalid time), 8, or the system's code
SYSMAINT_API long FormatDateTime(uint64_t time, int longForm, wchar_t** text);

/// The system's message for a Win32 code or an HRESULT, on one line.
///
/// @return 0, 87, 8, 317 (the system has none)
SYSMAINT_API long FormatSystemError(unsigned long code, wchar_t** text);
SYSMAINT_C_END
