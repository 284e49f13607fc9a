#pragma once

#include "core/win32/utils/connections/api.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "support/Test.h"

using ConnectionHandle = SmartHandle<CloseConnection>;
inline constexpr auto kClient = ConnectionRole::Client, kServer = ConnectionRole::Server;

template <class Number>
std::string bytesOf(Number value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}
inline std::string dumped(const SerializableW& message)
{
    MemoryOutputByteStream stream;
    EXPECT_EQ(message.dump(0, stream), ERROR_SUCCESS);
    return {reinterpret_cast<const char*>(stream.getData()), stream.getSize()};
}
/// A message as it is sent.
inline std::string framed(std::uint32_t messageClass, const std::string& body)
{
    return bytesOf(static_cast<std::uint32_t>(body.size())) + bytesOf(messageClass) + body;
}

/// A server, a client of it, and the server's end of that, over a pipe or a socket.
struct Connected
{
    explicit Connected(bool pipe, const wchar_t* on = L"127.0.0.1") : isPipe(pipe), address(on) { renew(); }
    /// New ones in place of these, however they are.
    void renew()
    {
        accepted.reset();
        client.reset();
        server.reset();
        server = makeServer(isPipe, address);
        EXPECT_EQ(ConnectionListen(server.get(), 60000, nullptr), ERROR_SUCCESS);
        client = makeClient(L"client");
        connect();
    }
    static ConnectionHandle makeServer(bool pipe, const wchar_t* host = L"127.0.0.1")
    {
        return ConnectionHandle(pipe ? CreatePipeConnection(L"sysmaint test\\server", kServer)
                                     : CreateSocketConnection(kServer, L"sysmaint test\\server", host, 0, 0));
    }
    /// A client of the server that listens.
    [[nodiscard]] ConnectionHandle makeClient(const wchar_t* name, const wchar_t* host = L"localhost") const
    {
        unsigned short port = 0;
        const std::wstring fullName = std::wstring(L"sysmaint test\\").append(name);
        if (ConnectionGetPort(server.get(), &port) != ERROR_SUCCESS)
            return ConnectionHandle(CreatePipeConnection(fullName.c_str(), kClient));
        return ConnectionHandle(CreateSocketConnection(kClient, fullName.c_str(), host, port, 0));
    }
    void connect()
    {
        void* handle = nullptr;
        EXPECT_EQ(ConnectionConnect(client.get(), 60000, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionAccept(server.get(), 60000, nullptr, &handle), ERROR_SUCCESS);
        accepted.reset(handle);
    }
    /// Lets the client write these bytes, and close its end.
    void writeAndClose(const std::string& bytes) const
    {
        EXPECT_EQ(ConnectionWrite(client.get(), bytes.data(), bytes.size(), 60000, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionDisconnect(client.get()), ERROR_SUCCESS);
    }
    [[nodiscard]] long receive(AnyMessage& message, unsigned long timeout = 60000) const
    {
        return ConnectionReceiveMessage(accepted.get(), message, nullptr, timeout, nullptr);
    }

    bool isPipe;
    const wchar_t* address;
    ConnectionHandle server;
    ConnectionHandle client;
    ConnectionHandle accepted;
};
