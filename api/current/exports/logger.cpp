// The exported functions of loggers.

#include "core/win32/utils/logger/include/Logger.h"
#include "core/win32/utils/logger/api.h"
#include "exports/Frames.h"

using boundary::createFrame;
using boundary::statusFrame;

namespace {
constexpr char kLoggerApi[] = "core\\win32\\utils\\logger\\api.h";
} // namespace

void* CreateLogger(const wchar_t* name)
{
    return createFrame(PLACE(kLoggerApi, "CreateLogger", __LINE__), loggers(), name,
                       [] { return new Logger; });
}

void* OpenLogger(const wchar_t* name)
{
    return loggers().lookup(name);
}

long WriteLogEntry(void* logger, const wchar_t* module, const wchar_t* message)
{
    return statusFrame(PLACE(kLoggerApi, "WriteLogEntry", __LINE__), loggers(), logger,
                       [&](Logger& object) { object.writeLogEntry(module, message); });
}

int CloseLogger(void* logger)
{
    return loggers().close(logger);
}
