#pragma once

#include <algorithm>
#include <string>

#include "core/win32/utils/objectmanager/include/Raise.h"

/// The text that a call of the system gives, whatever its length. `fill(text, capacity)` makes the call with
/// a buffer of `capacity` characters and returns what it returns: the length of the text when that fits with
/// its terminator, the capacity that it wants or any other number from `capacity` on when not, or 0 with the
/// last error set. Raises that as a bare code, and std::bad_alloc.
template <class Fill>
[[nodiscard]] std::wstring systemText(Fill&& fill)
{
    std::wstring text(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = fill(text.data(), static_cast<DWORD>(text.size()));
        if (length == 0)
            raiseLastError();
        const bool fits = length < text.size();
        text.resize(fits ? length : std::max<std::size_t>(length, text.size() * 2));
        if (fits)
            return text;
    }
}
