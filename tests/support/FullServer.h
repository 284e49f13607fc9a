#pragma once

#include <winsock2.h>

#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <array>

/// A server on loopback that takes no connection and whose backlog is full: connecting to it hangs.
class FullServer
{
public:
    FullServer()
    {
        WSADATA data{};
        WSAStartup(MAKEWORD(2, 2), &data);
        m_listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int length = sizeof address;
        EXPECT_EQ(bind(m_listener, reinterpret_cast<sockaddr*>(&address), length), 0);
        listen(m_listener, 0);
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        for (SOCKET& filler : m_fillers) {
            u_long nonBlocking = 1;
            filler = socket(AF_INET, SOCK_STREAM, 0);
            ioctlsocket(filler, static_cast<long>(FIONBIO), &nonBlocking);
            static_cast<void>(connect(filler, reinterpret_cast<sockaddr*>(&address), length));
        }
    }
    FullServer(const FullServer&) = delete;
    FullServer& operator=(const FullServer&) = delete;
    ~FullServer()
    {
        for (const SOCKET filler : m_fillers)
            closesocket(filler);
        closesocket(m_listener);
        WSACleanup();
    }
    [[nodiscard]] unsigned short getPort() const { return m_port; }

private:
    SOCKET m_listener = INVALID_SOCKET;
    std::array<SOCKET, 4> m_fillers{};
    unsigned short m_port = 0;
};
