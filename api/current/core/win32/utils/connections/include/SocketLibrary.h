#pragma once

#include <mswsock.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"

/// The system's socket library, loaded with the first connection that needs it and kept for good: most
/// programs never open a socket. Its failures are raised as bare codes of the socket layer.
class SocketLibrary
{
public:
    /// Raises the system's code when it cannot be loaded or started.
    [[nodiscard]] static const SocketLibrary& get();

    decltype(&::WSASocketW) socket = nullptr;
    decltype(&::closesocket) close = nullptr;
    decltype(&::bind) bind = nullptr;
    decltype(&::listen) listen = nullptr;
    decltype(&::shutdown) shutdown = nullptr;
    decltype(&::getsockname) getSocketName = nullptr;
    decltype(&::setsockopt) setOption = nullptr;
    decltype(&::WSAIoctl) control = nullptr;
    decltype(&::ioctlsocket) query = nullptr;
    decltype(&::WSASend) send = nullptr;
    decltype(&::WSARecv) receive = nullptr;
    decltype(&::WSAGetOverlappedResult) getResult = nullptr;
    decltype(&::WSAGetLastError) getLastError = nullptr;
    decltype(&::GetAddrInfoW) getAddresses = nullptr;
    decltype(&::FreeAddrInfoW) freeAddresses = nullptr;

    [[noreturn]] void raiseLast() const { raiseCode(getLastError()); }

private:
    SocketLibrary();
};

/// Owner of a socket.
struct SocketTraits
{
    struct Value // what an owner that holds nothing has is no socket
    {
        SOCKET socket = INVALID_SOCKET;
    };
    static bool isValid(Value value) noexcept { return value.socket != INVALID_SOCKET; }
    static void close(Value value) noexcept { SocketLibrary::get().close(value.socket); }
};
using SocketHandle = Win32Owner<SocketTraits>;
