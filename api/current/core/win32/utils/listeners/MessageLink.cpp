#include "core/win32/utils/listeners/include/MessageLink.h"

#include <random>

using linkprotocol::Answer;

MessageLink::MessageLink(void* connection) : m_connection(connection)
{
    m_connection->requireClient();
    std::random_device random; // nobody else can tell the number, and use it up
    m_greeting.client = std::uint64_t{random()} << 32U | random();
}

void MessageLink::connect(const WaitLimits& limits)
{
    m_connection->disconnect();
    m_connection->connect(limits);
    m_wire = m_connection->getWire();
    m_wire->writeAll(&m_greeting, sizeof m_greeting, limits);
}

// The peer may have gone since the last request. It has not read a request whole that could not be written.
bool MessageLink::tryWrite(const std::vector<unsigned char>& request, const WaitLimits& limits)
{
    if (!m_wire)
        return false;
    try {
        m_wire->writeAll(request.data(), request.size(), limits);
        return true;
    } catch (long code) {
        if (code == ERROR_CANCELLED || code == WAIT_TIMEOUT)
            throw;
        return false;
    }
}

long MessageLink::exchange(const std::vector<unsigned char>& request, const WaitLimits& limits,
                           AnyMessage& reply)
{
    try {
        if (!tryWrite(request, limits)) {
            connect(limits);
            m_wire->writeAll(request.data(), request.size(), limits);
        }
        Answer answer;
        m_wire->readAll(&answer, sizeof answer, limits);
        if (answer.hasReply > 1)
            raiseCode(ERROR_INVALID_DATA);
        if (answer.hasReply == 1)
            reply = messageframe::receiveFrame(*m_wire, m_connection->getFrameLimit(), nullptr, limits);
        return static_cast<long>(answer.code);
    } catch (...) {
        disconnect();
        throw;
    }
}

void MessageLink::end() noexcept
{
    m_wire.reset();
    m_connection.end();
}

void MessageLink::disconnect() noexcept
{
    m_wire.reset();
    m_connection->disconnect();
}
