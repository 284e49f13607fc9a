#pragma once

#include <string>

#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "win32/scanengine/include/ScanItem.h"

/// The table of all scan items that have a handle.
extern ObjectTable<SharedPtr<ScanItem>> scanItems;

/// The name that an item is registered under: the caller's name, a backslash and the item's identifier.
[[nodiscard]] inline std::wstring scanItemKey(const wchar_t* name, const wchar_t* identifier)
{
    return std::wstring(name) + L'\\' + identifier;
}

/// One opening of an entry in the table of scan items, closed on destruction.
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
    /// Releases the opening without closing it.
    [[nodiscard]] void* release() noexcept { return std::exchange(m_handle, nullptr); }

private:
    void* m_handle;
};

/// Whether an item still is what it was registered as: setPath and load may have made it another one since,
/// which must not be returned for the old one.
[[nodiscard]] bool isRegisteredAs(const ScanItem& item, std::wstring_view identifier);

/// Opens the item that is registered under the caller's name and the identifier of `item`, or registers
/// `item` there. Returns the handle. Raises an Exception at `place`: 487 for no item, 183 when what is
/// registered there is another kind of item or now means something else. Raises the table's codes as a bare
/// long.
[[nodiscard]] void* openOrRegisterItem(const char* place, const wchar_t* name,
                                       const SharedPtr<ScanItem>& item);

/// Opens the item that is registered under `name` with that identifier, and stores it. Returns the handle.
/// Raises the table's codes as a bare long, and 1168 for no such item.
[[nodiscard]] void* openRegisteredItem(const wchar_t* name, const wchar_t* identifier,
                                       SharedPtr<ScanItem>& item);

/// Registers the item that `make` returns, as the whole body of an exported function. Fails with 87 without a
/// name or when `argumentsGiven` is false.
template <class Make>
void* createItem(const char* place, const wchar_t* name, bool argumentsGiven, Make&& make) noexcept
{
    return boundary::handleFrame([&]() -> void* {
        if (name == nullptr || !argumentsGiven)
            throw Exception(place, ERROR_INVALID_PARAMETER);
        return openOrRegisterItem(place, name, make());
    });
}
