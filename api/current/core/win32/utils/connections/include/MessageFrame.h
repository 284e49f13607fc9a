#pragma once

#include <memory>

#include "core/win32/utils/connections/include/Wire.h"
#include "win32/communication/include/AnyMessage.h"

/// The form in which messages travel over a wire: the length of the serialized message (u32), its class
/// (u32, MessageClass), and the serialized message; little-endian. The operations raise bare codes.
namespace messageframe {
/// The largest message unless somebody says otherwise.
inline constexpr std::uint32_t kDefaultLimit = 64U << 20U;

/// Sends a frame. Raises 4336 for a message of more than `limit` bytes, of which nothing is sent then, and
/// what dumping it raises.
void sendFrame(Wire& wire, MessageClass messageClass, const SerializableW& message, std::uint32_t limit,
               const WaitLimits& limits);
void sendFrame(Wire& wire, MessageClass messageClass, const SerializableA& message, std::uint32_t limit,
               const WaitLimits& limits);

/// Reads one frame back. Memory is taken as the bytes arrive, not for the length that the peer claims. Closes
/// the wire of a peer that breaks the form: 4336 a message of more than `limit` bytes, 13 an unknown class or
/// bytes that are no such message, 109 the end in the middle.
AnyMessage receiveFrame(Wire& wire, std::uint32_t limit, ArrayMessage::ElementFactory elements,
                        const WaitLimits& limits);
} // namespace messageframe
