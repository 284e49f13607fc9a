#pragma once

#include "core/win32/utils/objectmanager/include/FailedAssertion.h"
#include "win32/communication/include/ArrayMessage.h"
#include "win32/communication/include/DataMessage.h"
#include "win32/communication/include/HashMessage.h"

inline constexpr char kMessageHandlerHeader[] = "win32\\communication\\include\\IMessageHandler.h";

/// Receives messages. Each message class has two operations: one without and one with the 32-bit value that
/// travels with a message. `context` is the sender's and is passed on untouched. What an operation raises
/// becomes the code of the sender's call.
///
/// A handler overrides the forms that it serves. Reaching any other is a programming error: it tells a
/// debugger, waits 20 seconds for one, reports a failed assertion (which by default ends the process) and
/// raises an Exception with 120.
struct IMessageHandler
{
    virtual ~IMessageHandler() = default;

    virtual void onMessage(const MessageW&, MessageW&, void*)
    {
        raiseNotImplemented(PLACE(kMessageHandlerHeader, "IMessageHandler::onMessage", 51), 51);
    }
    virtual void onMessage(const MessageW&, MessageW&, std::uint32_t, void*)
    {
        raiseNotImplemented(PLACE(kMessageHandlerHeader, "IMessageHandler::onMessage", 64), 64);
    }
    virtual void onMessage(const DataMessage&, DataMessage&, void*)
    {
        raiseNotImplemented(PLACE(kMessageHandlerHeader, "IMessageHandler::onMessage", 77), 77);
    }
    virtual void onMessage(const DataMessage&, DataMessage&, std::uint32_t, void*)
    {
        raiseNotImplemented(PLACE(kMessageHandlerHeader, "IMessageHandler::onMessage", 90), 90);
    }
    virtual void onMessage(const ArrayMessage&, ArrayMessage&, void*)
    {
        raiseNotImplemented(PLACE(kMessageHandlerHeader, "IMessageHandler::onMessage", 103), 103);
    }
    virtual void onMessage(const ArrayMessage&, ArrayMessage&, std::uint32_t, void*)
    {
        raiseNotImplemented(PLACE(kMessageHandlerHeader, "IMessageHandler::onMessage", 116), 116);
    }
    virtual void onMessage(const HashMessageW&, HashMessageW&, void*)
    {
        raiseNotImplemented(PLACE(kMessageHandlerHeader, "IMessageHandler::onMessage", 129), 129);
    }
    virtual void onMessage(const HashMessageW&, HashMessageW&, std::uint32_t, void*)
    {
        raiseNotImplemented(PLACE(kMessageHandlerHeader, "IMessageHandler::onMessage", 142), 142);
    }

private:
    static void raiseNotImplemented(const char* place, unsigned line)
    {
        wchar_t banner[1024] = L"================== ASSERT ==================\n";
        OutputDebugStringW(banner);
        Sleep(20000); // time to attach a debugger
        reportFailedAssertion(L"false", L"api\\current\\win32\\communication\\include\\IMessageHandler.h",
                              line - 1);
        throw Exception(place, ERROR_CALL_NOT_IMPLEMENTED);
    }
};
