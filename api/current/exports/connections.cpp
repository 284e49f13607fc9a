// The exported functions of connections.

#include "core/win32/utils/connections/api.h"
#include "core/win32/utils/connections/include/Connection.h"
#include "exports/Frames.h"

using boundary::createFrame;
using boundary::statusFrame;
using frames::requireArguments;

namespace {
constexpr char kConnectionsApi[] = "core\\win32\\utils\\connections\\api.h";

MessageClass classOf(const MessageW& message) noexcept
{
    if (dynamic_cast<const HashMessageW*>(&message) != nullptr)
        return MessageClass::HashMessageW;
    if (dynamic_cast<const DataMessage*>(&message) != nullptr)
        return MessageClass::DataMessage;
    if (dynamic_cast<const ArrayMessage*>(&message) != nullptr)
        return MessageClass::ArrayMessage;
    return MessageClass::MessageW;
}

MessageClass classOf(const MessageA& message) noexcept
{
    return dynamic_cast<const HashMessageA*>(&message) != nullptr ? MessageClass::HashMessageA
                                                                  : MessageClass::MessageA;
}

template <class Message>
long send(void* connection, const Message& message, unsigned long timeout, void* cancelEvent) noexcept
{
    return statusFrame(PLACE(kConnectionsApi, "ConnectionSendMessage", __LINE__), connections(), connection,
                       [&](Connection& object) {
                           messageframe::sendFrame(*object.getWire(), classOf(message), message,
                                                   object.getFrameLimit(),
                                                   WaitLimits::ofEvent(timeout, cancelEvent));
                       });
}
} // namespace

void* CreatePipeConnection(const wchar_t* name, ConnectionRole role)
{
    // The frame turns it into 8. NOLINTBEGIN(bugprone-unhandled-exception-at-new)
    return createFrame(PLACE(kConnectionsApi, "CreatePipeConnection", __LINE__), connections(), name,
                       [&] { return new Connection(name, makePipeEndpoint(name, role)); });
}

void* CreateSocketConnection(ConnectionRole role, const wchar_t* name, const wchar_t* host,
                             unsigned short port, unsigned long protocol)
{
    return createFrame(PLACE(kConnectionsApi, "CreateSocketConnection", __LINE__), connections(), name,
                       [&] { return new Connection(name, makeSocketEndpoint(role, host, port, protocol)); });
    // NOLINTEND(bugprone-unhandled-exception-at-new)
}

void* OpenConnection(const wchar_t* name)
{
    return connections().lookup(name);
}

int CloseConnection(void* connection)
{
    return closeConnection(connection);
}

long ConnectionGetNameByHandle(void* connection, const wchar_t** name)
{
    return statusFrame([&]() -> long {
        requireSuccess(PLACE(kConnectionsApi, "ConnectionGetNameByHandle", __LINE__),
                       connections().getName(connection, name));
        return ERROR_SUCCESS;
    });
}

long ConnectionConnect(void* connection, unsigned long timeout, void* cancelEvent)
{
    return statusFrame(
        PLACE(kConnectionsApi, "ConnectionConnect", __LINE__), connections(), connection,
        [&](Connection& object) { object.connect(WaitLimits::ofEvent(timeout, cancelEvent)); });
}

long ConnectionListen(void* connection, unsigned long timeout, void* cancelEvent)
{
    return statusFrame(PLACE(kConnectionsApi, "ConnectionListen", __LINE__), connections(), connection,
                       [&](Connection& object) { object.listen(WaitLimits::ofEvent(timeout, cancelEvent)); });
}

long ConnectionGetPort(void* connection, unsigned short* port)
{
    return statusFrame(PLACE(kConnectionsApi, "ConnectionGetPort", __LINE__), connections(), connection,
                       [&](Connection& object) {
                           requireArguments(PLACE(kConnectionsApi, "ConnectionGetPort", __LINE__),
                                            port != nullptr);
                           *port = object.getPort();
                       });
}

long ConnectionAccept(void* connection, unsigned long timeout, void* cancelEvent, void** client)
{
    return statusFrame(
        PLACE(kConnectionsApi, "ConnectionAccept", __LINE__), connections(), connection,
        [&](Connection& object) {
            requireArguments(PLACE(kConnectionsApi, "ConnectionAccept", __LINE__), client != nullptr);
            const auto accepted =
                makeShared<Connection>(object.accept(WaitLimits::ofEvent(timeout, cancelEvent)));
            accepted->setFrameLimit(object.getFrameLimit());
            *client = addConnection(object.getName().c_str(), accepted);
        });
}

long ConnectionDisconnect(void* connection)
{
    return statusFrame(PLACE(kConnectionsApi, "ConnectionDisconnect", __LINE__), connections(), connection,
                       [](Connection& object) { object.disconnect(); });
}

long ConnectionRead(void* connection, void* buffer, size_t size, unsigned long timeout, void* cancelEvent,
                    size_t* read)
{
    return statusFrame(PLACE(kConnectionsApi, "ConnectionRead", __LINE__), connections(), connection,
                       [&](Connection& object) {
                           requireArguments(PLACE(kConnectionsApi, "ConnectionRead", __LINE__),
                                            buffer != nullptr && size != 0 && read != nullptr);
                           *read = object.getWire()->readSome(buffer, size,
                                                              WaitLimits::ofEvent(timeout, cancelEvent));
                       });
}

long ConnectionReadAll(void* connection, void* buffer, size_t size, unsigned long timeout, void* cancelEvent)
{
    return statusFrame(PLACE(kConnectionsApi, "ConnectionReadAll", __LINE__), connections(), connection,
                       [&](Connection& object) {
                           requireArguments(PLACE(kConnectionsApi, "ConnectionReadAll", __LINE__),
                                            buffer != nullptr || size == 0);
                           object.getWire()->readAll(buffer, size, WaitLimits::ofEvent(timeout, cancelEvent));
                       });
}

long ConnectionWrite(void* connection, const void* data, size_t size, unsigned long timeout,
                     void* cancelEvent)
{
    return statusFrame(PLACE(kConnectionsApi, "ConnectionWrite", __LINE__), connections(), connection,
                       [&](Connection& object) {
                           requireArguments(PLACE(kConnectionsApi, "ConnectionWrite", __LINE__),
                                            data != nullptr || size == 0);
                           object.getWire()->writeAll(data, size, WaitLimits::ofEvent(timeout, cancelEvent));
                       });
}

long ConnectionSetMessageLimit(void* connection, unsigned long bytes)
{
    return statusFrame(PLACE(kConnectionsApi, "ConnectionSetMessageLimit", __LINE__), connections(),
                       connection, [&](Connection& object) {
                           requireArguments(PLACE(kConnectionsApi, "ConnectionSetMessageLimit", __LINE__),
                                            bytes != 0);
                           object.setFrameLimit(bytes);
                       });
}

long ConnectionSendMessage(void* connection, const MessageW& message, unsigned long timeout,
                           void* cancelEvent)
{
    return send(connection, message, timeout, cancelEvent);
}

long ConnectionSendMessage(void* connection, const MessageA& message, unsigned long timeout,
                           void* cancelEvent)
{
    return send(connection, message, timeout, cancelEvent);
}

long ConnectionReceiveMessage(void* connection, AnyMessage& message, ArrayMessage::ElementFactory elements,
                              unsigned long timeout, void* cancelEvent)
{
    return statusFrame(PLACE(kConnectionsApi, "ConnectionReceiveMessage", __LINE__), connections(),
                       connection, [&](Connection& object) {
                           message =
                               messageframe::receiveFrame(*object.getWire(), object.getFrameLimit(), elements,
                                                          WaitLimits::ofEvent(timeout, cancelEvent));
                       });
}
