#pragma once

#include "exports/c/CFrames.h"
#include "win32/communication/include/AnyMessage.h"

/// A message of the C interface: one of the classes, and which.
class MessageHolder
{
public:
    /// A copy of a caller's or of the library's message.
    template <class Type>
    [[nodiscard]] static SharedPtr<MessageHolder> copyOf(const Type& message)
    {
        return makeShared<MessageHolder>(kindOf<Type>(), makeShared<MessageW, Type>(message));
    }

    MessageHolder(MessageClass kind, const SharedPtr<MessageW>& message) : m_kind(kind), m_message(message) {}

    [[nodiscard]] MessageClass kind() const noexcept { return m_kind; }
    [[nodiscard]] MessageW& message() const noexcept { return *m_message; }
    /// The message as its class. Raises 120 when it is of another.
    template <class Type>
    [[nodiscard]] Type& as() const
    {
        if (m_kind != kindOf<Type>())
            raiseCode(ERROR_CALL_NOT_IMPLEMENTED);
        return static_cast<Type&>(*m_message);
    }

private:
    template <class Type>
    [[nodiscard]] static constexpr MessageClass kindOf() noexcept
    {
        if constexpr (std::is_same_v<Type, DataMessage>)
            return MessageClass::DataMessage;
        else if constexpr (std::is_same_v<Type, ArrayMessage>)
            return MessageClass::ArrayMessage;
        else if constexpr (std::is_same_v<Type, HashMessageW>)
            return MessageClass::HashMessageW;
        else
            return MessageClass::MessageW;
    }

    MessageClass m_kind;
    SharedPtr<MessageW> m_message;
};

/// Calls `body` with an empty pointer to the class of a kind of messages. Raises 87 for a number of none.
template <class Body>
auto withMessageClass(std::uint32_t kind, Body&& body)
{
    switch (kind) {
    case SYSMAINT_MESSAGE_PLAIN:
        return body(static_cast<MessageW*>(nullptr));
    case SYSMAINT_MESSAGE_DATA:
        return body(static_cast<DataMessage*>(nullptr));
    case SYSMAINT_MESSAGE_ARRAY:
        return body(static_cast<ArrayMessage*>(nullptr));
    case SYSMAINT_MESSAGE_PARAMETERS:
        return body(static_cast<HashMessageW*>(nullptr));
    default:
        raiseCode(ERROR_INVALID_PARAMETER);
    }
}

/// Calls `body` with the message as its class.
template <class Body>
auto withMessage(const MessageHolder& box, Body&& body)
{
    return withMessageClass(static_cast<std::uint32_t>(box.kind()), [&](auto* type) {
        return body(box.as<std::remove_pointer_t<decltype(type)>>());
    });
}

/// The messages that the C interface has handed out.
extern cframes::Table<sysmaint_message, MessageHolder> messages;
