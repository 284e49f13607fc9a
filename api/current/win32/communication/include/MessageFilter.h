#pragma once

#include "win32/communication/include/IMessageHandler.h"

/// Sees every message of a topic before the handlers do, through the same operations. A filter stops a
/// message by raising a code: delivery ends there, and the sender's call returns the code.
///
/// Unlike a handler, a filter lets messages pass for which it has no operation.
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
