#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/NativeApi.h"

/// Zeroed memory directly from the system.
class PageBlock
{
public:
    explicit PageBlock(const native::Api& api) : m_api(api) {}
    PageBlock(const PageBlock&) = delete;
    PageBlock& operator=(const PageBlock&) = delete;
    ~PageBlock() { release(); }

    /// Replaces its memory with `bytes` bytes, at least one. On failure it has none.
    native::Status allocate(std::size_t bytes)
    {
        release();
        SIZE_T size = bytes;
        const native::Status status =
            m_api.allocate(currentProcess(), &m_address, 0, &size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
        if (status < 0)
            m_address = nullptr;
        return status;
    }
    template <class T>
    [[nodiscard]] T* as() const
    {
        return static_cast<T*>(m_address);
    }

private:
    static HANDLE currentProcess()
    {
        return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)); // NOLINT(*-no-int-to-ptr)
    }
    void release()
    {
        SIZE_T size = 0;
        if (m_address != nullptr)
            m_api.release(currentProcess(), &m_address, &size, MEM_RELEASE);
        m_address = nullptr;
    }

    const native::Api& m_api;
    void* m_address = nullptr;
};
