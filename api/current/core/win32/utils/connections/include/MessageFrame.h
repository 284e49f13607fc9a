#pragma once

#include <memory>
#include <vector>

#include "core/win32/utils/connections/include/Wire.h"
#include "win32/communication/include/AnyMessage.h"

/// The form in which messages travel over a wire: the length of the serialized message (u32), its class
/// (u32, MessageClass), and the serialized message; little-endian. The operations raise bare codes.
namespace messageframe {
/// The largest message unless somebody says otherwise.
inline constexpr std::uint32_t kDefaultLimit = 64U << 20U;

struct Header
{
    std::uint32_t length = 0;
    std::uint32_t messageClass = 0;
};

/// The bytes of a frame, behind others that are to go with it. Raises 4336 for a message of more than `limit`
/// bytes, and what dumping it raises.
[[nodiscard]] std::vector<unsigned char> makeFrame(const void* before, std::size_t size,
                                                   MessageClass messageClass, const SerializableW& message,
                                                   std::uint32_t limit);
/// Sends a frame. When it is refused as above, nothing is sent.
void sendFrame(Wire& wire, MessageClass messageClass, const SerializableW& message, std::uint32_t limit,
               const WaitLimits& limits);
void sendFrame(Wire& wire, MessageClass messageClass, const SerializableA& message, std::uint32_t limit,
               const WaitLimits& limits);

/// Reads one frame back. Closes the wire of a peer that breaks the form: 4336 a message of more than `limit`
/// bytes, 13 an unknown class or bytes that are no such message, 109 the end in the middle.
AnyMessage receiveFrame(Wire& wire, std::uint32_t limit, ArrayMessage::ElementFactory elements,
                        const WaitLimits& limits);

// ---- The same in steps, for who goes on after a message that it refuses.

/// A serialized message as it was read. Memory is taken as the bytes arrive, not for the length that the peer
/// claims.
class Body
{
public:
    Body(Wire& wire, std::size_t size, const WaitLimits& limits);
    [[nodiscard]] MemoryInputByteStream getStream() const noexcept { return {m_bytes.get(), m_size}; }

private:
    std::unique_ptr<unsigned char[]> m_bytes;
    std::size_t m_size;
};
/// The message in serialized form, which must be all of the stream. Raises 13, also for a number of no class,
/// and 8.
[[nodiscard]] AnyMessage loadMessage(std::uint32_t messageClass, MemoryInputByteStream stream,
                                     ArrayMessage::ElementFactory elements);
/// Reads a body and forgets it.
void skipBody(Wire& wire, std::size_t size, const WaitLimits& limits);
} // namespace messageframe
