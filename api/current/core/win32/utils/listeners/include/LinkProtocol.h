#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

#include "core/win32/utils/connections/include/Connection.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "win32/communication/include/AnyMessage.h"

/// What reporters and listeners say to each other; plain.h describes the bytes.
namespace linkprotocol {
struct Greeting
{
    std::array<char, 8> version{'s', 'm', 't', 'o', 'p', 'i', 'c', '1'};
    std::uint64_t client = 0;
};

enum class Task : std::uint32_t
{
    Post = 0,
    Send = 1,
};

/// What stands before the message of a request.
struct Request
{
    Task task = Task::Post;
    std::uint32_t value = 0;
    std::uint64_t number = 0;
};

/// What stands before the reply, if there is one.
struct Answer
{
    std::uint32_t code = 0;
    std::uint32_t hasReply = 0;
};

static_assert(sizeof(Greeting) == 16 && sizeof(Request) == 16 && sizeof(Answer) == 8);

/// The code that asks for another attempt later.
inline constexpr long kTryLater = ERROR_NOT_ENOUGH_QUOTA;
inline constexpr std::uint32_t kNoValue = 0xFFFFFFFF;

template <class Message>
inline constexpr MessageClass kClassOf = MessageClass::MessageW;
template <>
inline constexpr MessageClass kClassOf<DataMessage> = MessageClass::DataMessage;
template <>
inline constexpr MessageClass kClassOf<ArrayMessage> = MessageClass::ArrayMessage;
template <>
inline constexpr MessageClass kClassOf<HashMessageW> = MessageClass::HashMessageW;

/// A message as a listener delivers it. Its class tells a reporter not to forward it; copies that a handler
/// makes are messages of the handler's own.
template <class Message>
class Arrived final : public Message
{
public:
    Arrived(const Message& message, std::shared_ptr<void> ticket)
        : Message(message), m_ticket(std::move(ticket))
    {
    }

private:
    std::shared_ptr<void> m_ticket; // lives as long as a copy of the message waits
};
} // namespace linkprotocol

/// One more opening of a connection, for its only listener or reporter. Raises 6 or 487 for a handle that is
/// not open, and 170 for a connection that has one already.
class OpenedConnection
{
public:
    explicit OpenedConnection(void* handle)
    {
        requireSuccess(connections().openAgain(handle));
        m_handle.reset(handle);
        requireSuccess(connections().get(handle, m_connection));
        if (!m_connection.get()->claim())
            raiseCode(ERROR_BUSY);
        m_isMine = true;
    }
    OpenedConnection(const OpenedConnection&) = delete;
    OpenedConnection& operator=(const OpenedConnection&) = delete;
    ~OpenedConnection()
    {
        if (m_isMine)
            m_connection.get()->release();
    }

    /// Disconnects it. Another listener or reporter may have it from now on, and repeating the call leaves
    /// that one alone.
    void end() noexcept
    {
        if (!m_isMine.exchange(false))
            return;
        m_connection.get()->disconnect();
        m_connection.get()->release();
    }

    Connection* operator->() const noexcept { return m_connection.get(); }

private:
    SmartHandle<closeConnection> m_handle;
    ConnectionPtr m_connection;
    std::atomic<bool> m_isMine{false};
};
