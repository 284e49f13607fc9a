// The C interface: connections.

#include "core/win32/utils/connections/api.h"

#include "core/win32/utils/connections/include/Connection.h"
#include "exports/c/CFrames.h"

using cframes::requireArguments;
using cframes::status;

static_assert(SYSMAINT_MESSAGE_PLAIN == static_cast<unsigned>(MessageClass::MessageW) &&
              SYSMAINT_MESSAGE_DATA == static_cast<unsigned>(MessageClass::DataMessage) &&
              SYSMAINT_MESSAGE_ARRAY == static_cast<unsigned>(MessageClass::ArrayMessage) &&
              SYSMAINT_MESSAGE_PARAMETERS == static_cast<unsigned>(MessageClass::HashMessageW) &&
              SYSMAINT_MESSAGE_NARROW == static_cast<unsigned>(MessageClass::MessageA) &&
              SYSMAINT_MESSAGE_NARROW_PARAMETERS == static_cast<unsigned>(MessageClass::HashMessageA));

namespace {
ConnectionRole roleOf(std::uint32_t role)
{
    requireArguments(role == SYSMAINT_CONNECTION_CLIENT || role == SYSMAINT_CONNECTION_SERVER);
    return static_cast<ConnectionRole>(role);
}
} // namespace

std::int32_t sysmaint_connection_pipe(const wchar_t* name, std::uint32_t role, void** connection)
{
    return status(__func__, [&] {
        requireArguments(connection != nullptr);
        cframes::opened(connection, CreatePipeConnection(name, roleOf(role)));
    });
}

std::int32_t sysmaint_connection_socket(const wchar_t* name, std::uint32_t role, const wchar_t* host,
                                        std::uint32_t port, void** connection)
{
    return status(__func__, [&] {
        constexpr std::uint32_t kLastPort = 65535;
        requireArguments(connection != nullptr && port <= kLastPort);
        cframes::opened(connection, CreateSocketConnection(roleOf(role), name, host,
                                                           static_cast<unsigned short>(port), 0));
    });
}

std::int32_t sysmaint_connection_send(void* connection, std::uint32_t kind, const void* bytes,
                                      std::uint64_t size, std::uint32_t timeout, void* cancel_event)
{
    return status(__func__, [&] {
        const auto object = cframes::objectOf<ConnectionPtr>(connections(), connection);
        requireArguments(bytes != nullptr);
        const AnyMessage message = messageframe::loadMessage(kind, {bytes, size}, nullptr);
        const auto limits = WaitLimits::ofEvent(timeout, cancel_event);
        const auto send = [&](const auto& any) {
            messageframe::sendFrame(*object->getWire(), message.messageClass, any, object->getFrameLimit(),
                                    limits);
        };
        message.wide ? send(*message.wide) : send(*message.narrow);
    });
}

std::int32_t sysmaint_connection_receive(void* connection, std::uint32_t timeout, void* cancel_event,
                                         std::uint32_t* kind, void** bytes, std::uint64_t* size)
{
    return status(__func__, [&] {
        const auto object = cframes::objectOf<ConnectionPtr>(connections(), connection);
        requireArguments(kind != nullptr && bytes != nullptr && size != nullptr);
        const AnyMessage message = messageframe::receiveFrame(
            *object->getWire(), object->getFrameLimit(), nullptr, WaitLimits::ofEvent(timeout, cancel_event));
        cframes::storeDump(bytes, size, [&](auto& stream) {
            return message.wide ? message.wide->dump(0, stream) : message.narrow->dump(0, stream);
        });
        *kind = static_cast<std::uint32_t>(message.messageClass);
    });
}
