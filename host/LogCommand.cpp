#include "Command.h"
#include "Console.h"

#include "core/win32/utils/logger/api.h"
#include "core/win32/utils/paths/api.h"

namespace {
constexpr const wchar_t* kHelp = LR"(usage: sysmaint log MODULE TEXT

Appends one line to the log of a module, in the folder logs\USER beside this program: ZRC.log for
"Registry Cleaner", ZPC.log for "Privacy Cleaner", ZDC.log for "Disk Cleaner", ZFM.log for any other.
A line holds 1,023 characters with its time stamp; what would be cut, or would make more than one line, is
refused.

example: sysmaint log "Disk Cleaner" "removed 12 files"
)";

/// The total size of all logs, which grows when the line is written.
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

/// The logger would cut the text and pass on the line end.
void requireOneLine(const std::wstring& module, const std::wstring& text)
{
    constexpr std::size_t kStampAndMarks = 25 + 3 + 2; // the colon and blanks, and the line's end
    constexpr std::size_t kLine = 1023;
    if (kStampAndMarks + module.size() + text.size() > kLine)
        throw UsageError{L"the text is too long: it and the module's name may have " +
                         formatCount(kLine - kStampAndMarks) + L" characters together"};
    for (const wchar_t c : module + text)
        if (c < L' ' || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029)
            throw UsageError{L"the text holds the end of a line, or another control character"};
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {});
    if (arguments.operands().size() != 2)
        throw UsageError{L"which module, and what text?"};
    const std::wstring& module = arguments.operands()[0];
    const std::wstring& text = arguments.operands()[1];
    requireOneLine(module, text);
    void* logger = CreateLogger(L"sysmaint");
    if (logger == INVALID_HANDLE_VALUE) {
        const DWORD failure = GetLastError(); // before anything else sets it
        messages().writeLine(L"log: " + formatCode(static_cast<long>(failure)));
        return kExitFailed;
    }
    const unsigned long long before = sizeOfLogs();
    long code = WriteLogEntry(logger, module.c_str(), text.c_str());
    // Closing a logger discards what it has not written yet.
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
