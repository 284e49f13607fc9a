#pragma once

#include <vector>

#include "core/win32/utils/listeners/include/LinkProtocol.h"

/// A reporter's connection to a listener: one request and its answer at a time. The operations raise bare
/// codes, after which it is not connected.
class MessageLink
{
public:
    /// Raises 6 or 487 for a handle that is not open, and 1 unless it is a client's.
    explicit MessageLink(void* connection);

    /// The bytes of a request. Raises 4336 for a message larger than the connection's limit, and what dumping
    /// it raises.
    template <class Message>
    [[nodiscard]] std::vector<unsigned char> makeRequest(const linkprotocol::Request& request,
                                                         const Message& message) const
    {
        return messageframe::makeFrame(&request, sizeof request, linkprotocol::kClassOf<Message>, message,
                                       m_connection->getFrameLimit());
    }
    /// Sends a request, connecting if necessary, and returns the answer's code; `reply` receives what follows
    /// it. Only a request that cannot have arrived whole is repeated.
    long exchange(const std::vector<unsigned char>& request, const WaitLimits& limits, AnyMessage& reply);
    void disconnect() noexcept;
    /// Disconnects for good. Repeating the call has no effect.
    void end() noexcept;

private:
    void connect(const WaitLimits& limits);
    [[nodiscard]] bool tryWrite(const std::vector<unsigned char>& request, const WaitLimits& limits);

    OpenedConnection m_connection;
    linkprotocol::Greeting m_greeting;
    WirePtr m_wire;
};
