#pragma once

#include <memory>
#include <span>
#include <vector>

#include "core/win32/utils/connections/include/SocketLibrary.h"
#include "core/win32/utils/connections/include/WaitLimits.h"

/// An address to connect to or to listen on.
struct SocketAddress
{
    sockaddr_storage storage{};
    int length = 0;

    [[nodiscard]] int getFamily() const noexcept { return storage.ss_family; }
    [[nodiscard]] const sockaddr* get() const noexcept { return reinterpret_cast<const sockaddr*>(&storage); }
};

/// All addresses of a host, in the system's order. A name is looked up on a thread of its own, because the
/// system's look-up cannot be cancelled; when the limits end the wait first, that thread ends by itself
/// later. An address in digits needs no look-up. Raises the socket layer's code (11001: no such host), or
/// what ended the wait.
[[nodiscard]] std::vector<SocketAddress> findAddresses(const wchar_t* host, unsigned short port,
                                                       const WaitLimits& limits);
