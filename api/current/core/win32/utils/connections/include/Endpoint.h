#pragma once

#include "core/win32/utils/connections/include/Wire.h"

/// Where a connection's wires come from: the client's or the server's side of a pipe or a socket. The
/// operations raise bare codes; 1 for those of the other role.
class Endpoint
{
public:
    Endpoint() = default;
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;
    virtual ~Endpoint() = default;

    [[nodiscard]] virtual WirePtr connect(const WaitLimits&) { raiseCode(ERROR_INVALID_FUNCTION); }
    /// Begins to listen, unless it does already.
    virtual void listen(const WaitLimits&) { raiseCode(ERROR_INVALID_FUNCTION); }
    /// Waits for a client. Several threads may.
    [[nodiscard]] virtual WirePtr accept(const WaitLimits&) { raiseCode(ERROR_INVALID_FUNCTION); }
    /// The port that a server listens on.
    [[nodiscard]] virtual unsigned short getPort() { raiseCode(ERROR_INVALID_FUNCTION); }
    /// Listens no more, until it is asked to again. No thread is in accept.
    virtual void stopListening() noexcept {}
};

using EndpointPtr = std::unique_ptr<Endpoint>;
