#pragma once

#include <algorithm>
#include <string>

#include "core/win32/utils/objectmanager/include/Raise.h"

/// The text that a system call returns, whatever its length. `fill(text, capacity)` makes the call with a
/// buffer of `capacity` characters and returns its result: the length of the text when it fits with its
/// terminator; otherwise the capacity it needs or any other number not below `capacity`; or 0 with the last
/// error set. Raises that error as a bare code, and std::bad_alloc.
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
