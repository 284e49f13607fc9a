#pragma once

#include <string>

#include "core/win32/utils/connections/include/AddressList.h"
#include "core/win32/utils/connections/include/Endpoint.h"

/// Connects to one address. Raises the socket layer's code, or what ended the wait.
[[nodiscard]] WirePtr connectSocket(const SocketAddress& address, const WaitLimits& limits);

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
