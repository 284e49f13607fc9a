#pragma once

#include <windows.h>

#include <memory>

struct HandleCloser
{
    using pointer = HANDLE;
    void operator()(HANDLE handle) const noexcept
    {
        if (handle != INVALID_HANDLE_VALUE)
            CloseHandle(handle);
    }
};

/// A handle closed by its owner's destructor. A file that could not be opened is INVALID_HANDLE_VALUE here.
using OwnedHandle = std::unique_ptr<void, HandleCloser>;
