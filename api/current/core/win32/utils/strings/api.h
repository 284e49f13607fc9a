#pragma once

#include "core/win32/utils/objectmanager/include/Api.h"

/// Finds the first place where `pattern` stands in `text`, comparing single characters without regard to
/// case in any locale.
///
/// @return a pointer into `text`; `text` itself for an empty pattern; null when there is none or either is
/// null
SYSMAINT_API const wchar_t* _wcsistr(const wchar_t* text, const wchar_t* pattern);

/// Takes texts apart that are lists of entries separated by single characters. Copies entry `index`, counted
/// from 0, of `text` to `token`, always terminated. Neighbouring separators count as one: no entry is empty.
///
/// @param separators  every character of it separates entries
/// @param token       receives the entry; may be null to ask for its length
/// @param capacity    size of `token` in characters, terminator included
/// @param needed      receives the entry's length in characters without terminator; may be null
/// @return 0; 87 (null text or separators); 1168 (no entry of that index); 234 (`token` null or too small,
///         which then receives nothing)
SYSMAINT_API long GetTokenW(const wchar_t* text, const wchar_t* separators, unsigned long index,
                            wchar_t* token, unsigned long capacity, unsigned long* needed);

/// Overwrites the first `find` in `text` by `replacement`; with replacement 0 the text is cut there.
///
/// @return the place that was changed, or null when `find` does not occur or `text` is null
SYSMAINT_API wchar_t* SetFirstCharW(wchar_t* text, wchar_t find, wchar_t replacement);
