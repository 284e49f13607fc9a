#include "core/win32/utils/ftp/include/FtpScanEngine.h"

#include "core/win32/utils/ftp/include/FtpPath.h"

constexpr char kFtpScanEngineHeader[] = "core\\win32\\utils\\ftp\\include\\FtpScanEngine.h";

ObjectTable<SharedPtr<FtpScanEngine>> ftpScanEngines(30); // they hold scan items

void FtpScanEngine::addPath(const wchar_t* server, const wchar_t* path, unsigned short port,
                            const wchar_t* user, const wchar_t* password)
{
    primitives::placedStep(PLACE(kFtpScanEngineHeader, "FtpScanEngine::addPath", __LINE__), [&] {
        if (path == nullptr)
            raiseCode(ERROR_INVALID_PARAMETER);
        const auto connection = makeShared<FtpConnection>(server, port, user, password);
        connection->setTimeout(m_timeout);
        appendRoot(makeShared<ScanItem, FtpPath>(connection, FtpLocation::fromPath(path), 0U));
    });
}

const char* FtpScanEngine::scanPlace() const noexcept
{
    return PLACE(kFtpScanEngineHeader, "FtpScanEngine::scan", __LINE__);
}
