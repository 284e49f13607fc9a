#pragma once

#include <algorithm>
#include <string>

#include "core/win32/utils/objectmanager/include/Raise.h"

/// Calls a Win32 function that fills a text and returns its length, or the size that it wants, or 0 with the
/// last error, until the text fits. Raises the bare code.
template <class Fill>
std::wstring filledText(Fill&& fill)
{
    std::wstring text(MAX_PATH, L'\0');
    for (;;) {
        SetLastError(ERROR_SUCCESS);
        const DWORD length = fill(text.data(), static_cast<DWORD>(text.size()));
        if (length == 0 && GetLastError() != ERROR_SUCCESS)
            raiseLastError();
        const bool fits = length < text.size();
        text.resize(fits ? length : std::max<std::size_t>(length, text.size() * 2));
        if (fits)
            return text;
    }
}
