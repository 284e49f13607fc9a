#pragma once

#include "win32/scanengine/include/IScanValidator.h"
#include "win32/scanengine/include/NotifyProvider.h"
#include "win32/scanengine/include/ScanOptions.h"

/// A scan engine that walks folders. The exported FSEngine... functions say what its operations do; here
/// failures are raised as an Exception.
struct IFileScanEngine
{
    virtual ~IFileScanEngine() = default;
    virtual void addPath(const wchar_t* path, int expand) = 0;
    virtual long scan(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                      const ScanOptions& options) = 0;
    virtual void registerHandlers(const INotifyProvider& provider, std::uint32_t first,
                                  std::uint32_t second) = 0;
    virtual void registerHandler(INotifyHandler& handler, std::uint32_t first, std::uint32_t second,
                                 std::uint64_t value) = 0;
    /// Drops all paths.
    virtual void clear() = 0;
    virtual void clearNotifyHandlers() = 0;
};
