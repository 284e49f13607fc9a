#include "core/win32/utils/connections/include/Connection.h"

#include "core/win32/utils/connections/include/PipeEndpoint.h"
#include "core/win32/utils/connections/include/SocketEndpoint.h"

// Listeners, lookups and scans hold connections; connections hold nothing.
ObjectTable<ConnectionPtr> connections(60);

/// One thread that waits for a peer, until it is disconnected.
class Connection::Waiting
{
public:
    Waiting(Connection& connection, WaitLimits& limits, bool connects) : m_connection(connection)
    {
        const WriteLocker locker(connection.m_lock);
        if (connection.m_stopping)
            raiseCode(ERROR_NOT_CONNECTED);
        if (connects && connection.m_connecting)
            raiseCode(ERROR_BUSY);
        if (connects && connection.m_wire && !connection.m_wire->isClosed())
            raiseCode(ERROR_CONNECTION_ACTIVE);
        if (!connection.m_stopEvent.isValid())
            connection.m_stopEvent = makeEvent();
        limits.stopEvent = connection.m_stopEvent.get();
        connection.m_connecting = connection.m_connecting || connects;
        ++connection.m_waiting;
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    // The last one that was to end tidies up, so that the connection can be used again.
    ~Waiting()
    {
        const WriteLocker locker(m_connection.m_lock);
        m_connection.m_connecting = false;
        if (--m_connection.m_waiting != 0 || !m_connection.m_stopping)
            return;
        m_connection.m_endpoint->stopListening();
        ResetEvent(m_connection.m_stopEvent.get());
        m_connection.m_stopping = false;
    }

    /// Makes the wire the connection's, unless it was disconnected in the last moment.
    void keep(const WirePtr& wire)
    {
        const WriteLocker locker(m_connection.m_lock);
        if (m_connection.m_stopping)
            raiseCode(ERROR_NOT_CONNECTED);
        m_connection.m_wire = wire;
    }

private:
    Connection& m_connection;
};

Endpoint& Connection::requireEndpoint()
{
    if (!m_endpoint)
        raiseCode(ERROR_INVALID_FUNCTION);
    return *m_endpoint;
}

void Connection::requireClient() const
{
    const Endpoint* endpoint = m_endpoint.get();
    if (dynamic_cast<const PipeClient*>(endpoint) == nullptr &&
        dynamic_cast<const SocketClient*>(endpoint) == nullptr)
        raiseCode(ERROR_INVALID_FUNCTION);
}

void Connection::connect(WaitLimits limits)
{
    Endpoint& endpoint = requireEndpoint();
    Waiting waiting(*this, limits, true);
    waiting.keep(endpoint.connect(limits));
}

void Connection::listen(WaitLimits limits)
{
    Endpoint& endpoint = requireEndpoint();
    const Waiting waiting(*this, limits, false);
    endpoint.listen(limits);
}

WirePtr Connection::accept(WaitLimits limits)
{
    Endpoint& endpoint = requireEndpoint();
    const Waiting waiting(*this, limits, false);
    return endpoint.accept(limits);
}

unsigned short Connection::getPort()
{
    return requireEndpoint().getPort();
}

WirePtr Connection::getWire()
{
    const ReadLocker locker(m_lock);
    if (!m_wire)
        raiseCode(ERROR_NOT_CONNECTED);
    return m_wire;
}

void Connection::disconnect() noexcept
{
    WirePtr wire; // let go of after the lock
    const WriteLocker locker(m_lock);
    wire.swap(m_wire);
    if (wire)
        wire->close();
    if (m_waiting != 0) {
        m_stopping = true;
        SetEvent(m_stopEvent.get());
    } else if (m_endpoint) {
        m_endpoint->stopListening();
    }
}

EndpointPtr makePipeEndpoint(const wchar_t* name, ConnectionRole role)
{
    if (role == ConnectionRole::Client)
        return std::make_unique<PipeClient>(pipePath(name));
    if (role == ConnectionRole::Server)
        return std::make_unique<PipeServer>(pipePath(name));
    raiseCode(ERROR_INVALID_PARAMETER);
}

EndpointPtr makeSocketEndpoint(ConnectionRole role, const wchar_t* host, unsigned short port,
                               unsigned long protocol)
{
    constexpr unsigned long kTcp = 0;
    if (host == nullptr || *host == L'\0' || protocol != kTcp)
        raiseCode(ERROR_INVALID_PARAMETER);
    if (role == ConnectionRole::Server)
        return std::make_unique<SocketServer>(host, port);
    if (role == ConnectionRole::Client && port != 0)
        return std::make_unique<SocketClient>(host, port);
    raiseCode(ERROR_INVALID_PARAMETER);
}

void* addConnection(const wchar_t* name, const ConnectionPtr& connection)
{
    static std::atomic<unsigned> s_number{0};
    std::wstring free = name;
    for (;;) {
        void* handle = connections().lookup(free.c_str());
        if (handle == INVALID_HANDLE_VALUE && GetLastError() == ERROR_NOT_FOUND) {
            handle = connections().registerObject(free.c_str(), connection);
            if (handle != INVALID_HANDLE_VALUE)
                return handle;
            if (GetLastError() != ERROR_ALREADY_EXISTS)
                raiseLastError();
            handle = connections().lookup(free.c_str()); // the refusal has opened it once more
            connections().close(handle);
        }
        if (handle == INVALID_HANDLE_VALUE)
            raiseLastError();
        connections().close(handle);
        free.assign(name).append(L"#").append(std::to_wstring(++s_number));
    }
}

int closeConnection(void* handle) noexcept
{
    return connections().close(handle, [](Connection& connection) { connection.disconnect(); });
}
