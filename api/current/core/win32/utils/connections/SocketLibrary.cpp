#include "core/win32/utils/connections/include/SocketLibrary.h"

#include <memory>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/Undestroyed.h"

namespace {
struct Shared
{
    ReadWriteLock lock;
    std::unique_ptr<SocketLibrary> library;
};
Undestroyed<Shared> shared;
} // namespace

SocketLibrary::SocketLibrary()
{
    SystemLibrary library(L"ws2_32.dll");
    const auto find = [&](auto& function, const char* name) {
        function = library.function<std::remove_reference_t<decltype(function)>>(name);
    };
    find(socket, "WSASocketW");
    find(close, "closesocket");
    find(bind, "bind");
    find(listen, "listen");
    find(shutdown, "shutdown");
    find(getSocketName, "getsockname");
    find(setOption, "setsockopt");
    find(control, "WSAIoctl");
    find(query, "ioctlsocket");
    find(send, "WSASend");
    find(receive, "WSARecv");
    find(getResult, "WSAGetOverlappedResult");
    find(getLastError, "WSAGetLastError");
    find(getAddresses, "GetAddrInfoW");
    find(freeAddresses, "FreeAddrInfoW");
    WSADATA data{};
    requireSuccess(library.function<decltype(&::WSAStartup)>("WSAStartup")(MAKEWORD(2, 2), &data));
    library.keep();
}

const SocketLibrary& SocketLibrary::get()
{
    {
        const ReadLocker locker(shared.get().lock);
        if (shared.get().library)
            return *shared.get().library;
    }
    const WriteLocker locker(shared.get().lock);
    if (!shared.get().library)
        shared.get().library.reset(new SocketLibrary);
    return *shared.get().library;
}
