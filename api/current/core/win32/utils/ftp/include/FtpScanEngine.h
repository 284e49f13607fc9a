#pragma once

#include <atomic>

#include "core/win32/utils/scanengine/include/ScanEngine.h"

/// The engine that walks folders on FTP servers.
class FtpScanEngine final : public ScanEngineOf<IFtpScanEngine>
{
public:
    static constexpr const char* kClassName = "FtpScanEngine";

    explicit FtpScanEngine(const wchar_t* name) : ScanEngineOf(name) {}
    void addPath(const wchar_t* server, const wchar_t* path, unsigned short port, const wchar_t* user,
                 const wchar_t* password) override;
    /// For the roots that are added from now on.
    void setTimeout(DWORD timeout) noexcept { m_timeout = timeout; }

private:
    [[nodiscard]] const char* scanPlace() const noexcept override;

    std::atomic<DWORD> m_timeout{30000};
};

/// The table of all FTP scan engines.
extern ObjectTable<SharedPtr<FtpScanEngine>> ftpScanEngines;
