#pragma once

#include <cstdint>

#include "core/win32/utils/objectmanager/include/SharedPtr.h"
#include "win32/scanengine/include/ScanItem.h"

/// The keys under which the engines report their finds.
enum NotificationKey : std::uint32_t
{
    kLeafFound = 0,      ///< a file or a registry value
    kContainerFound = 1, ///< a folder or a registry key
    kListingFailed = 2   ///< a container that could not be listed completely; the value is the code
};

/// What a handler learns besides the found item.
struct INotification
{
    virtual ~INotification() = default;
    /// The first number that the handler was registered with: its key.
    [[nodiscard]] virtual std::uint32_t getFirst() const noexcept = 0;
    /// The second number that the handler was registered with; the caller defines its meaning.
    [[nodiscard]] virtual std::uint32_t getSecond() const noexcept = 0;
    /// The value that came with the notification: under kListingFailed the Win32 code, otherwise 0.
    [[nodiscard]] virtual std::uint32_t getValue() const noexcept = 0;
};

/// The record handed to a handler for one item. Valid during the call.
class Notification : public INotification
{
public:
    Notification(std::uint32_t first, std::uint32_t second, std::uint32_t value,
                 std::uint64_t registrationValue) noexcept
        : m_first(first), m_second(second), m_value(value), m_registrationValue(registrationValue)
    {
    }
    [[nodiscard]] std::uint32_t getFirst() const noexcept override { return m_first; }
    [[nodiscard]] std::uint32_t getSecond() const noexcept override { return m_second; }
    [[nodiscard]] std::uint32_t getValue() const noexcept override { return m_value; }
    /// The 64-bit value given at registration; the caller defines its meaning.
    [[nodiscard]] std::uint64_t getRegistrationValue() const noexcept { return m_registrationValue; }

private:
    std::uint32_t m_first;
    std::uint32_t m_second;
    std::uint32_t m_value;
    std::uint64_t m_registrationValue;
};

/// A caller's handler. It runs on the scanning thread, with no lock of the library held: it may register,
/// clear, scan elsewhere, or signal the cancel event. It may keep a copy of the item. Anything it raises ends
/// the scan and becomes the scan's code.
struct INotifyHandler
{
    virtual ~INotifyHandler() = default;
    virtual void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) = 0;
};
