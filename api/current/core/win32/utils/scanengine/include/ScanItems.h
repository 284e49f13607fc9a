#pragma once

#include <string>

#include "core/win32/utils/objectmanager/include/ObjectManager.h"
#include "win32/scanengine/include/ScanItem.h"

/// The table of all scan items that have a handle.
[[nodiscard]] ObjectManager<SharedPtr<ScanItem>>& scanItems() noexcept;

/// The name that an item is filed under: the caller's name, a backslash and the item's identifier.
[[nodiscard]] inline std::wstring scanItemKey(const wchar_t* name, const wchar_t* identifier)
{
    return std::wstring(name) + L'\\' + identifier;
}

/// One opening of an entry in the table of scan items; closes it when it dies.
class ScanItemHandle
{
public:
    explicit ScanItemHandle(void* handle) noexcept : m_handle(handle) {}
    ScanItemHandle(ScanItemHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    ScanItemHandle& operator=(ScanItemHandle&& other) noexcept
    {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    ~ScanItemHandle()
    {
        if (m_handle != nullptr)
            scanItems().close(m_handle);
    }

    [[nodiscard]] void* get() const noexcept { return m_handle; }
    /// Gives the opening away without closing it.
    [[nodiscard]] void* release() noexcept { return std::exchange(m_handle, nullptr); }

private:
    void* m_handle;
};
