#pragma once

#include "win32/communication/include/ArrayMessage.h"
#include "win32/communication/include/DataMessage.h"
#include "win32/communication/include/HashMessage.h"

/// The classes of messages by the numbers that stand for them on the wire.
enum class MessageClass : std::uint32_t
{
    MessageW = 0,
    DataMessage = 1,
    ArrayMessage = 2,
    HashMessageW = 3,
    MessageA = 4,
    HashMessageA = 5,
};

/// A message whose class is known only when it is there. One of the two pointers holds it: `narrow` for
/// MessageA and HashMessageA, `wide` for the others.
struct AnyMessage
{
    MessageClass messageClass = MessageClass::MessageW;
    SharedPtr<MessageW> wide;
    SharedPtr<MessageA> narrow;
};
