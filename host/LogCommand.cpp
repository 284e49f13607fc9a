#include "Command.h"
#include "Console.h"

#include "core/win32/utils/logger/api.h"
#include "core/win32/utils/paths/api.h"

namespace {
constexpr const wchar_t* kHelp = LR"(usage: sysmaint log MODULE TEXT

Appends one line to the log of a module, in the folder logs\USER beside this program: ZRC.log for
"Registry Cleaner", ZPC.log for "Privacy Cleaner", ZDC.log for "Disk Cleaner", ZFM.log for any other.

example: sysmaint log "Disk Cleaner" "removed 12 files"
)";

/// The sizes of all logs together: it grows when the line is written.
unsigned long long sizeOfLogs()
{
    wchar_t folder[1024] = L"%current%\\logs\\%username%\\";
    DllGetPathValidatorW()->validate(folder, 1024, nullptr);
    unsigned long long size = 0;
    for (const wchar_t* name : {L"ZFM.log", L"ZRC.log", L"ZPC.log", L"ZDC.log"}) {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        if (GetFileAttributesExW((std::wstring(folder) + name).c_str(), GetFileExInfoStandard, &data))
            size += (static_cast<unsigned long long>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
    }
    return size;
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {});
    if (arguments.operands().size() != 2)
        throw UsageError{L"which module, and what text?"};
    void* logger = CreateLogger(L"sysmaint");
    if (logger == INVALID_HANDLE_VALUE) {
        messages().writeLine(L"log: " + formatCode(static_cast<long>(GetLastError())));
        return kExitFailed;
    }
    const unsigned long long before = sizeOfLogs();
    long code = WriteLogEntry(logger, arguments.operands()[0].c_str(), arguments.operands()[1].c_str());
    // A logger that is closed drops what it has not written yet.
    bool written = false;
    for (int i = 0; code == ERROR_SUCCESS && !written && i < 500; ++i) {
        Sleep(10);
        written = sizeOfLogs() > before;
    }
    CloseLogger(logger);
    if (code == ERROR_SUCCESS && !written)
        code = ERROR_WRITE_FAULT;
    if (code != ERROR_SUCCESS)
        messages().writeLine(L"log: " + formatCode(code));
    return code == ERROR_SUCCESS ? kExitDone : kExitFailed;
}
} // namespace

const Command kLogCommand = {L"log", L"append a line to a module's log", kHelp, &run};
