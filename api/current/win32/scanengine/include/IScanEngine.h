#pragma once

#include "win32/scanengine/include/IScanValidator.h"
#include "win32/scanengine/include/NotifyProvider.h"
#include "win32/scanengine/include/ScanOptions.h"

/// What the engines have in common. The exported FSEngine... and RSEngine... functions document the
/// operations; here failures are raised as an Exception.
template <class... Root>
struct IScanEngine
{
    virtual ~IScanEngine() = default;
    virtual void addPath(Root... root) = 0;
    virtual long scan(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                      const ScanOptions& options) = 0;
    virtual void registerHandlers(const INotifyProvider& provider, std::uint32_t first,
                                  std::uint32_t second) = 0;
    virtual void registerHandler(INotifyHandler& handler, std::uint32_t first, std::uint32_t second,
                                 std::uint64_t value) = 0;
    /// Removes all paths.
    virtual void clear() = 0;
    virtual void clearNotifyHandlers() = 0;
};

/// The engine that walks folders. A root is a path and whether to expand its macros.
using IFileScanEngine = IScanEngine<const wchar_t*, int>;
/// The engine that walks registry keys. A root is a root key, a sub-key path and the options word of the keys
/// (RegistryOption).
using IRegistryScanEngine = IScanEngine<HKEY, const wchar_t*, unsigned long>;
/// The engine that walks folders on FTP servers. A root is a server, a path from its root, a port, a user and
/// a password.
using IFtpScanEngine =
    IScanEngine<const wchar_t*, const wchar_t*, unsigned short, const wchar_t*, const wchar_t*>;
