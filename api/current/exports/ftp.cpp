// The exported functions of FTP connections, files and scans.

#include "core/win32/utils/ftp/api.h"
#include "core/win32/utils/ftp/include/FtpFile.h"
#include "core/win32/utils/ftp/include/FtpScanEngine.h"
#include "exports/Frames.h"

using boundary::createFrame;
using boundary::resultFrame;
using boundary::statusFrame;
using frames::requireArguments;

namespace {
constexpr char kFtpApi[] = "core\\win32\\utils\\ftp\\api.h";
} // namespace

void* CreateFtpConnection(const wchar_t* name, const wchar_t* host, unsigned short port, const wchar_t* user,
                          const wchar_t* password)
{
    // The frame turns it into 8. NOLINTNEXTLINE(bugprone-unhandled-exception-at-new)
    return createFrame(PLACE(kFtpApi, "CreateFtpConnection", __LINE__), ftpConnections(), name,
                       [&] { return new FtpConnection(host, port, user, password); });
}

void* OpenFtpConnection(const wchar_t* name)
{
    return ftpConnections().lookup(name);
}

int CloseFtpConnection(void* connection)
{
    return ftpConnections().close(connection, [](FtpConnection& object) { object.close(); });
}

long FtpConnectionSetTimeout(void* connection, unsigned long timeout)
{
    return statusFrame(PLACE(kFtpApi, "FtpConnectionSetTimeout", __LINE__), ftpConnections(), connection,
                       [&](FtpConnection& object) { object.setTimeout(timeout); });
}

long FtpConnectionConnect(void* connection, void* cancelEvent)
{
    return statusFrame(PLACE(kFtpApi, "FtpConnectionConnect", __LINE__), ftpConnections(), connection,
                       [&](FtpConnection& object) {
                           requireEvent(cancelEvent);
                           object.connect(cancelEvent);
                       });
}

IFtpFile* DllGetFtpFile(void* connection, const wchar_t* path)
{
    return resultFrame<IFtpFile*>(nullptr, [&]() -> IFtpFile* {
        requireArguments(PLACE(kFtpApi, "DllGetFtpFile", __LINE__), path != nullptr);
        FtpConnectionPtr object;
        requireSuccess(PLACE(kFtpApi, "DllGetFtpFile", __LINE__), ftpConnections().get(connection, object));
        return std::make_unique<FtpFile>(object, FtpLocation::fromFilePath(path), false, std::nullopt)
            .release();
    });
}

IFtpFile* DllGetFtpFile(unsigned long loadCode, IInputByteStream& stream)
{
    return frames::loadObject<IFtpFile, FtpFile>(loadCode, stream);
}

void* CreateFtpScanEngine(const wchar_t* name)
{
    return createFrame(PLACE(kFtpApi, "CreateFtpScanEngine", __LINE__), ftpScanEngines(), name,
                       [&] { return new FtpScanEngine(name); });
}

void* OpenFtpScanEngine(const wchar_t* name)
{
    return ftpScanEngines().lookup(name);
}

long FtpSEngineAddPath(void* engine, const wchar_t* server, const wchar_t* path, unsigned short port,
                       const wchar_t* user, const wchar_t* password)
{
    return statusFrame(PLACE(kFtpApi, "FtpSEngineAddPath", __LINE__), ftpScanEngines(), engine,
                       [&](FtpScanEngine& object) { object.addPath(server, path, port, user, password); });
}

long FtpSEngineSetTimeout(void* engine, unsigned long timeout)
{
    return statusFrame(PLACE(kFtpApi, "FtpSEngineSetTimeout", __LINE__), ftpScanEngines(), engine,
                       [&](FtpScanEngine& object) { object.setTimeout(timeout); });
}

long FtpSEngineRegisterHandler(void* engine, INotifyHandler& handler, unsigned long first,
                               unsigned long second, unsigned long long value)
{
    return statusFrame(PLACE(kFtpApi, "FtpSEngineRegisterHandler", __LINE__), ftpScanEngines(), engine,
                       [&](FtpScanEngine& object) { object.registerHandler(handler, first, second, value); });
}

long FtpSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                                unsigned long second)
{
    return statusFrame(PLACE(kFtpApi, "FtpSEngineRegisterHandlers", __LINE__), ftpScanEngines(), engine,
                       [&](FtpScanEngine& object) { object.registerHandlers(provider, first, second); });
}

long FtpSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                    ScanOptions options)
{
    return statusFrame(PLACE(kFtpApi, "FtpSEngineScan", __LINE__), ftpScanEngines(), engine,
                       [&](FtpScanEngine& object) { return object.scan(cancelEvent, validator, options); });
}

long FtpSEngineClearHandlers(void* engine)
{
    return statusFrame(PLACE(kFtpApi, "FtpSEngineClearHandlers", __LINE__), ftpScanEngines(), engine,
                       [](FtpScanEngine& object) { object.clearNotifyHandlers(); });
}

long FtpSEngineClear(void* engine)
{
    return statusFrame(PLACE(kFtpApi, "FtpSEngineClear", __LINE__), ftpScanEngines(), engine,
                       [](FtpScanEngine& object) { object.clear(); });
}

long CloseFtpScanEngine(void* engine)
{
    return ftpScanEngines().close(engine);
}
