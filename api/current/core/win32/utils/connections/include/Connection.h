#pragma once

#include <atomic>
#include <string>

#include "core/win32/utils/connections/include/Endpoint.h"
#include "core/win32/utils/connections/include/MessageFrame.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "win32/connection/include/ConnectionRole.h"

/// A named connection: the endpoint that it gets its wire from, and the wire while it is connected. A server
/// has no wire of its own: each client that it accepts becomes a connection without an endpoint. The
/// operations raise bare codes; the exported functions say what each does.
class Connection
{
public:
    static constexpr const char* kClassName = "Connection";

    Connection(const wchar_t* name, EndpointPtr endpoint) : m_name(name), m_endpoint(std::move(endpoint)) {}
    /// A client that a server has accepted.
    explicit Connection(WirePtr wire) : m_wire(std::move(wire)) {}
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { disconnect(); }

    /// The name that it was created under; empty for one that was accepted.
    [[nodiscard]] const std::wstring& getName() const noexcept { return m_name; }

    /// Raises 1 for a server, and for a client that a server has accepted.
    void requireClient() const;
    void connect(WaitLimits limits);
    void listen(WaitLimits limits);
    [[nodiscard]] WirePtr accept(WaitLimits limits);
    [[nodiscard]] unsigned short getPort();
    void disconnect() noexcept;
    /// The wire; raises 2250 while there is none.
    [[nodiscard]] WirePtr getWire();

    /// Takes it for a listener or a reporter: false when one has it already.
    [[nodiscard]] bool claim() noexcept { return !m_isClaimed.exchange(true); }
    void release() noexcept { m_isClaimed = false; }

    [[nodiscard]] std::uint32_t getFrameLimit() const noexcept { return m_frameLimit; }
    void setFrameLimit(std::uint32_t limit) noexcept { m_frameLimit = limit; }

private:
    class Waiting;
    [[nodiscard]] Endpoint& requireEndpoint();

    std::wstring m_name;
    EndpointPtr m_endpoint;
    ReadWriteLock m_lock;
    WirePtr m_wire;
    Win32Handle m_stopEvent; // made by the first that waits for a peer
    unsigned m_waiting = 0;  // threads that do
    bool m_connecting = false;
    bool m_stopping = false; // they are to end
    std::atomic<bool> m_isClaimed{false};
    std::atomic<std::uint32_t> m_frameLimit{messageframe::kDefaultLimit};
};
using ConnectionPtr = SharedPtr<Connection>;

/// The table of all connections.
extern ObjectTable<ConnectionPtr> connections;

/// The endpoints that the arguments of the exported functions stand for. Raise 87.
[[nodiscard]] EndpointPtr makePipeEndpoint(const wchar_t* name, ConnectionRole role);
[[nodiscard]] EndpointPtr makeSocketEndpoint(ConnectionRole role, const wchar_t* host, unsigned short port,
                                             unsigned long protocol);
/// Files a connection under `name`, or, when that is taken, under `name` followed by "#" and a number.
/// Returns its handle; raises a bare code.
[[nodiscard]] void* addConnection(const wchar_t* name, const ConnectionPtr& connection);
/// Gives a handle back; the last one disconnects. Returns 0 for a handle that is not open.
int closeConnection(void* handle) noexcept;
