#pragma once

#include "core/win32/utils/memory/api.h"

// Times as numbers and texts. core/win32/utils/memory/api.h describes what all utility functions have in
// common.

SYSMAINT_C_BEGIN
/// Seconds since 1970, which may be negative, as a time.
///
/// @return 0, 87, 534 (before 1601, or too late)
SYSMAINT_API long TimeFromUnix(int64_t seconds, uint64_t* time);

/// A time in whole seconds since 1970, rounded down.
///
/// @return 0, 87 (also a time above 2^63 - 1)
SYSMAINT_API long TimeToUnix(uint64_t time, int64_t* seconds);

/// "2026-11-21T19:03:07.0000000Z": UTC with all digits, so texts sort like their times.
///
/// @return 0, 87 (also a time after the year 9999), 8
SYSMAINT_API long TimeToText(uint64_t time, wchar_t** text);

/// The reverse. The fraction may have one to seven digits or be omitted with its dot; nothing else may vary.
///
/// @return 0, 87 (also any other text, a day that does not exist, and one before 1601)
SYSMAINT_API long TimeFromText(const wchar_t* text, uint64_t* time);
SYSMAINT_C_END
