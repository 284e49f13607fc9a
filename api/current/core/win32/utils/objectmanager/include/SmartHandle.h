#pragma once

#include <windows.h>

#include <utility>

/// Holds one handle of an object family and closes it with the family's close function on destruction. The
/// null handle and the invalid handle (all bits set) are never closed. Movable, not copyable.
template <int (*CloseFn)(void*)>
class SmartHandle
{
public:
    SmartHandle() noexcept = default;
    /// Explicit: a plain handle passed where a SmartHandle is expected would be closed after the call.
    explicit SmartHandle(void* handle) noexcept : m_handle(handle) {}
    SmartHandle(SmartHandle&& other) noexcept : m_handle(other.release()) {}
    SmartHandle& operator=(SmartHandle&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    ~SmartHandle() { reset(); }

    [[nodiscard]] void* get() const noexcept { return m_handle; }
    [[nodiscard]] bool isValid() const noexcept
    {
        return m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE;
    }

    /// Gives the handle away without closing it.
    [[nodiscard]] void* release() noexcept { return std::exchange(m_handle, nullptr); }
    /// Closes the held handle, if any, and holds `handle` instead.
    void reset(void* handle = nullptr) noexcept
    {
        if (isValid())
            CloseFn(m_handle);
        m_handle = handle;
    }

private:
    void* m_handle = nullptr;
};
