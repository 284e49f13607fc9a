#pragma once

#include <string>

#include "core/win32/utils/connections/include/AddressList.h"
#include "core/win32/utils/connections/include/Endpoint.h"

/// What connections to one address share that are made one after another. Each is gone before the next
/// begins.
struct ConnectTools
{
    EventPtr event = makeSharedEvent();
    LPFN_CONNECTEX connect = nullptr;
    SocketHandle socket; ///< of the next one, once prepared

    /// Makes the next one's socket unless it is there. Who does so while an answer is under way that tells
    /// the port spends no time on it later.
    void prepare(int family);
};

/// A connection to one address that is being made, while its owner does something else. The operations raise
/// the socket layer's code.
class PendingConnect
{
public:
    PendingConnect(const SocketAddress& address, ConnectTools& tools);
    PendingConnect(const PendingConnect&) = delete;
    PendingConnect& operator=(const PendingConnect&) = delete;
    /// Takes it back unless it was waited for.
    ~PendingConnect();

    /// Waits for it; to be called once. Raises also what ended the wait.
    [[nodiscard]] WirePtr finish(const WaitLimits& limits);

private:
    SocketHandle m_socket;
    EventPtr m_event;
    OverlappedCall m_call;
    long m_begun = ERROR_SUCCESS;
};

/// Connects to a TCP server, trying all addresses of its host in turn.
class SocketClient final : public Endpoint
{
public:
    SocketClient(const wchar_t* host, unsigned short port) : m_host(host), m_port(port) {}
    [[nodiscard]] WirePtr connect(const WaitLimits& limits) override;
    /// The address that the last connect reached.
    [[nodiscard]] const SocketAddress& getAddress() const noexcept { return m_address; }

private:
    std::wstring m_host;
    unsigned short m_port;
    SocketAddress m_address;
};

/// Listens on a TCP port of one address of this machine, or of all of them ("*").
class SocketServer final : public Endpoint
{
public:
    SocketServer(const wchar_t* host, unsigned short port) : m_host(host), m_port(port) {}
    void listen(const WaitLimits& limits) override;
    [[nodiscard]] WirePtr accept(const WaitLimits& limits) override;
    [[nodiscard]] unsigned short getPort() override;
    void stopListening() noexcept override;

private:
    std::wstring m_host;
    unsigned short m_port;
    ReadWriteLock m_lock;
    std::shared_ptr<SocketHandle> m_socket; // while it listens
    int m_family = 0;
};
