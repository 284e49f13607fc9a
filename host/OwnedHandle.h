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

/// A handle that is closed with its owner. A file that could not be opened is INVALID_HANDLE_VALUE here.
using OwnedHandle = std::unique_ptr<void, HandleCloser>;
