#include "core/win32/utils/connections/include/AddressList.h"

#include <cstring>
#include <string>

#include "core/win32/utils/connections/include/OverlappedCall.h"
#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/KeptLibrary.h"

namespace {
std::vector<SocketAddress> ask(const std::wstring& host, const std::wstring& port, int flags)
{
    const SocketLibrary& sockets = SocketLibrary::get();
    ADDRINFOW hints{};
    hints.ai_flags = flags;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    ADDRINFOW* list = nullptr;
    if (const int code = sockets.getAddresses(host.c_str(), port.c_str(), &hints, &list); code != 0)
        raiseCode(code);
    const std::unique_ptr<ADDRINFOW, decltype(sockets.freeAddresses)> owner(list, sockets.freeAddresses);
    std::vector<SocketAddress> addresses;
    for (const ADDRINFOW* entry = list; entry != nullptr; entry = entry->ai_next) {
        SocketAddress address;
        if (entry->ai_addrlen > sizeof address.storage)
            continue;
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
        address.length = static_cast<int>(entry->ai_addrlen);
        addresses.push_back(address);
    }
    if (addresses.empty())
        raiseCode(WSAHOST_NOT_FOUND);
    return addresses;
}

/// What the thread that looks a name up shares with the one that asked, whichever ends first.
struct LookUp
{
    std::wstring host;
    std::wstring port;
    Win32Handle done = makeEvent();
    long code = ERROR_SUCCESS;
    std::vector<SocketAddress> addresses;
};
using LookUpPtr = std::shared_ptr<LookUp>;

DWORD WINAPI lookUpThread(void* argument) noexcept
{
    const HMODULE library = KeptLibrary::reference();
    {
        const std::unique_ptr<LookUpPtr> owner(static_cast<LookUpPtr*>(argument));
        LookUp& lookUp = **owner;
        lookUp.code = boundary::statusOf([&]() -> long {
            lookUp.addresses = ask(lookUp.host, lookUp.port, 0);
            return ERROR_SUCCESS;
        });
        SetEvent(lookUp.done.get());
    }
    KeptLibrary::exitThread(library, 0);
}

void startThread(const LookUpPtr& lookUp)
{
    auto argument = std::make_unique<LookUpPtr>(lookUp);
    requireSuccess(KeptLibrary::hold());
    const Win32Handle thread(CreateThread(nullptr, 0, &lookUpThread, argument.get(), 0, nullptr));
    if (!thread.isValid()) {
        const long code = lastError();
        KeptLibrary::release();
        raiseCode(code);
    }
    static_cast<void>(argument.release()); // the thread's
}
} // namespace

std::vector<SocketAddress> findAddresses(const wchar_t* host, unsigned short port, const WaitLimits& limits)
{
    const std::wstring portText = std::to_wstring(port);
    try {
        return ask(host, portText, AI_NUMERICHOST);
    } catch (long code) {
        if (code != WSAHOST_NOT_FOUND)
            throw;
    }
    const auto lookUp = std::make_shared<LookUp>();
    lookUp->host = host;
    lookUp->port = portText;
    startThread(lookUp);
    requireSuccess(limits.wait(lookUp->done.get()));
    requireSuccess(lookUp->code);
    return std::move(lookUp->addresses);
}
