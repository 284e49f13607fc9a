#include "core/win32/utils/connections/include/SocketEndpoint.h"

#include <array>
#include <cstring>

namespace {
HANDLE asHandle(const SocketHandle& socket) noexcept
{
    return reinterpret_cast<HANDLE>(socket.get().socket);
}

long socketResult(const SocketHandle& socket, OVERLAPPED& overlapped, DWORD& done) noexcept
{
    const SocketLibrary& sockets = SocketLibrary::get();
    DWORD flags = 0;
    return sockets.getResult(socket.get().socket, &overlapped, &done, TRUE, &flags) ? ERROR_SUCCESS
                                                                                    : sockets.getLastError();
}

/// What a call that begins an operation and returns 0 on success means.
long begunCode(int result) noexcept
{
    return result == 0 ? ERROR_SUCCESS : SocketLibrary::get().getLastError();
}

template <class Value>
void setOption(const SocketHandle& socket, int level, int option, const Value& value)
{
    const SocketLibrary& sockets = SocketLibrary::get();
    if (sockets.setOption(socket.get().socket, level, option, reinterpret_cast<const char*>(&value),
                          sizeof value) != 0)
        sockets.raiseLast();
}

class SocketWire final : public Wire
{
public:
    SocketWire(SocketHandle socket, EventPtr event) : Wire(std::move(event)), m_socket(std::move(socket))
    {
        // A request goes off at once. Without it the wire works as well, only slower.
        const BOOL noDelay = TRUE;
        SocketLibrary::get().setOption(m_socket.get().socket, IPPROTO_TCP, TCP_NODELAY,
                                       reinterpret_cast<const char*>(&noDelay), sizeof noDelay);
    }

    [[nodiscard]] bool hasArrived() noexcept override
    {
        u_long count = 0;
        return SocketLibrary::get().query(m_socket.get().socket, FIONREAD, &count) != 0 || count != 0;
    }

protected:
    long beginRead(void* target, DWORD size, OVERLAPPED& overlapped) noexcept override
    {
        WSABUF buffer{size, static_cast<char*>(target)};
        DWORD flags = 0;
        return begunCode(SocketLibrary::get().receive(m_socket.get().socket, &buffer, 1, nullptr, &flags,
                                                      &overlapped, nullptr));
    }
    long beginWrite(const void* source, DWORD size, OVERLAPPED& overlapped) noexcept override
    {
        WSABUF buffer{size, const_cast<char*>(static_cast<const char*>(source))}; // which is only read
        return begunCode(
            SocketLibrary::get().send(m_socket.get().socket, &buffer, 1, nullptr, 0, &overlapped, nullptr));
    }
    long resultOf(OVERLAPPED& overlapped, DWORD& done) noexcept override
    {
        return socketResult(m_socket, overlapped, done);
    }
    [[nodiscard]] HANDLE getHandle() const noexcept override { return asHandle(m_socket); }
    void endWriting() noexcept override { SocketLibrary::get().shutdown(m_socket.get().socket, SD_SEND); }

private:
    SocketHandle m_socket;
};

SocketHandle makeSocket(int family)
{
    const SocketLibrary& sockets = SocketLibrary::get();
    const SOCKET socket = sockets.socket(family, SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                                         WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (socket == INVALID_SOCKET)
        sockets.raiseLast();
    return SocketHandle({socket});
}

template <class Function>
Function extension(const SocketHandle& socket, GUID id)
{
    const SocketLibrary& sockets = SocketLibrary::get();
    Function function = nullptr;
    DWORD size = 0;
    if (sockets.control(socket.get().socket, SIO_GET_EXTENSION_FUNCTION_POINTER, &id, sizeof id, &function,
                        sizeof function, &size, nullptr, nullptr) != 0)
        sockets.raiseLast();
    return function;
}

/// The address of all interfaces, or the only one that a connecting socket can be bound to.
SocketAddress anyAddress(int family, unsigned short port) noexcept
{
    const auto networkPort = static_cast<unsigned short>(port << 8U | port >> 8U);
    SocketAddress address;
    address.storage.ss_family = static_cast<short>(family);
    if (family == AF_INET6) {
        reinterpret_cast<sockaddr_in6*>(&address.storage)->sin6_port = networkPort;
        address.length = sizeof(sockaddr_in6);
    } else {
        reinterpret_cast<sockaddr_in*>(&address.storage)->sin_port = networkPort;
        address.length = sizeof(sockaddr_in);
    }
    return address;
}

void bindSocket(const SocketHandle& socket, const SocketAddress& address)
{
    const SocketLibrary& sockets = SocketLibrary::get();
    if (sockets.bind(socket.get().socket, address.get(), address.length) != 0)
        sockets.raiseLast();
}

/// A socket that listens alone: nobody else can take the port from it.
SocketHandle listenAt(const SocketAddress& address, bool everywhere)
{
    const SocketLibrary& sockets = SocketLibrary::get();
    SocketHandle socket = makeSocket(address.getFamily());
    setOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, BOOL{TRUE});
    if (everywhere && address.getFamily() == AF_INET6)
        setOption(socket, IPPROTO_IPV6, IPV6_V6ONLY, DWORD{0});
    bindSocket(socket, address);
    if (sockets.listen(socket.get().socket, SOMAXCONN) != 0)
        sockets.raiseLast();
    return socket;
}

/// Null for a client that has gone before it was its turn.
WirePtr acceptFrom(const SocketHandle& listener, int family, const WaitLimits& limits)
{
    constexpr DWORD kAddressRoom = sizeof(sockaddr_in6) + 16; // as the system wants it
    const auto acceptOne = extension<LPFN_ACCEPTEX>(listener, WSAID_ACCEPTEX);
    SocketHandle client = makeSocket(family);
    std::array<char, std::size_t{2} * kAddressRoom> addresses{};
    EventPtr event = makeSharedEvent();
    OverlappedCall call(event->get());
    DWORD done = 0;
    const BOOL begun = acceptOne(listener.get().socket, client.get().socket, addresses.data(), 0,
                                 kAddressRoom, kAddressRoom, &done, &call.get());
    requireSuccess(call.finish(
        asHandle(listener), begunCode(begun ? 0 : -1), limits, done,
        [&](OVERLAPPED& overlapped, DWORD& count) { return socketResult(listener, overlapped, count); }));
    const SOCKET listening = listener.get().socket;
    if (SocketLibrary::get().setOption(client.get().socket, SOL_SOCKET, SO_UPDATE_ACCEPT_CONTEXT,
                                       reinterpret_cast<const char*>(&listening), sizeof listening) != 0)
        return nullptr;
    return std::make_shared<SocketWire>(std::move(client), std::move(event));
}
} // namespace

void ConnectTools::prepare(int family)
{
    if (socket.isValid())
        return;
    SocketHandle made = makeSocket(family);
    bindSocket(made, anyAddress(family, 0));
    if (connect == nullptr)
        connect = extension<LPFN_CONNECTEX>(made, WSAID_CONNECTEX);
    socket = std::move(made);
}

PendingConnect::PendingConnect(const SocketAddress& address, ConnectTools& tools)
    : m_event(tools.event), m_call(m_event->get())
{
    tools.prepare(address.getFamily());
    m_socket = std::move(tools.socket);
    const BOOL begun = tools.connect(m_socket.get().socket, address.get(), address.length, nullptr, 0,
                                     nullptr, &m_call.get());
    m_begun = begunCode(begun ? 0 : -1);
}

PendingConnect::~PendingConnect()
{
    if (!m_socket.isValid() || m_begun != ERROR_IO_PENDING)
        return;
    DWORD done = 0;
    CancelIoEx(asHandle(m_socket), &m_call.get());
    socketResult(m_socket, m_call.get(), done);
}

WirePtr PendingConnect::finish(const WaitLimits& limits)
{
    const long begun = std::exchange(m_begun, ERROR_SUCCESS);
    DWORD done = 0;
    requireSuccess(
        m_call.finish(asHandle(m_socket), begun, limits, done, [&](OVERLAPPED& overlapped, DWORD& count) {
            return socketResult(m_socket, overlapped, count);
        }));
    if (SocketLibrary::get().setOption(m_socket.get().socket, SOL_SOCKET, SO_UPDATE_CONNECT_CONTEXT, nullptr,
                                       0) != 0)
        SocketLibrary::get().raiseLast();
    return std::make_shared<SocketWire>(std::move(m_socket), std::move(m_event));
}

// Each address but the last gets its share of the time, so that one that never answers leaves some to the
// others. What ended the wait as a whole ends the search.
WirePtr SocketClient::connect(const WaitLimits& limits)
{
    const std::vector<SocketAddress> addresses = findAddresses(m_host.c_str(), m_port, limits);
    for (std::size_t i = 0;; ++i) {
        const std::size_t left = addresses.size() - i;
        WaitLimits share = limits;
        if (left > 1 && limits.deadline.getLeft() != INFINITE)
            share.deadline = Deadline(limits.deadline.getLeft() / static_cast<DWORD>(left));
        try {
            ConnectTools tools;
            WirePtr wire = PendingConnect(addresses[i], tools).finish(share);
            m_address = addresses[i];
            return wire;
        } catch (long code) {
            if (left == 1 || code == ERROR_CANCELLED || code == ERROR_NOT_CONNECTED)
                throw;
        }
    }
}

void SocketServer::listen(const WaitLimits& limits)
{
    {
        const ReadLocker locker(m_lock);
        if (m_socket)
            return;
    }
    const bool everywhere = m_host == L"*";
    std::vector<SocketAddress> addresses;
    if (everywhere)
        addresses = {anyAddress(AF_INET6, m_port), anyAddress(AF_INET, m_port)};
    else
        addresses = findAddresses(m_host.c_str(), m_port, limits);
    const WriteLocker locker(m_lock);
    for (std::size_t i = 0; !m_socket; ++i) {
        try {
            m_socket = std::make_shared<SocketHandle>(listenAt(addresses[i], everywhere));
            m_family = addresses[i].getFamily();
        } catch (long) {
            if (i + 1 == addresses.size())
                throw;
        }
    }
}

WirePtr SocketServer::accept(const WaitLimits& limits)
{
    listen(limits);
    std::shared_ptr<SocketHandle> listener;
    int family = 0;
    {
        const ReadLocker locker(m_lock);
        listener = m_socket;
        family = m_family;
    }
    if (!listener)
        raiseCode(ERROR_NOT_CONNECTED);
    for (;;) {
        try {
            if (WirePtr wire = acceptFrom(*listener, family, limits))
                return wire;
        } catch (long code) {
            // The same where the system tells it like this: it is nobody's failure.
            if (code != WSAECONNRESET && code != WSAECONNABORTED && code != ERROR_NETNAME_DELETED &&
                code != WSAENOTCONN)
                throw;
        }
    }
}

unsigned short SocketServer::getPort()
{
    const ReadLocker locker(m_lock);
    if (!m_socket)
        raiseCode(ERROR_NOT_CONNECTED);
    const SocketLibrary& sockets = SocketLibrary::get();
    SocketAddress address;
    address.length = sizeof address.storage;
    if (sockets.getSocketName(m_socket->get().socket, reinterpret_cast<sockaddr*>(&address.storage),
                              &address.length) != 0)
        sockets.raiseLast();
    // The port stands at the same place in both kinds.
    const unsigned short port = reinterpret_cast<const sockaddr_in*>(&address.storage)->sin_port;
    return static_cast<unsigned short>(port << 8U | port >> 8U);
}

void SocketServer::stopListening() noexcept
{
    const WriteLocker locker(m_lock);
    m_socket.reset();
}
