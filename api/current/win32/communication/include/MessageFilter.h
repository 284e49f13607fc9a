#pragma once

#include "win32/communication/include/IMessageHandler.h"

/// Sees every message of a topic before the handlers do, through the same operations. A filter takes a
/// message by raising a code: the delivery ends there, and the code is that of the sender's call.
///
/// A filter lets pass what it has no operation for, unlike a handler.
struct MessageFilter : IMessageHandler
{
    void onMessage(const MessageW&, MessageW&, void*) override {}
    void onMessage(const MessageW&, MessageW&, std::uint32_t, void*) override {}
    void onMessage(const DataMessage&, DataMessage&, void*) override {}
    void onMessage(const DataMessage&, DataMessage&, std::uint32_t, void*) override {}
    void onMessage(const ArrayMessage&, ArrayMessage&, void*) override {}
    void onMessage(const ArrayMessage&, ArrayMessage&, std::uint32_t, void*) override {}
    void onMessage(const HashMessageW&, HashMessageW&, void*) override {}
    void onMessage(const HashMessageW&, HashMessageW&, std::uint32_t, void*) override {}
};
