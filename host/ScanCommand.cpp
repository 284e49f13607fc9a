#include "Command.h"
#include "Console.h"

#include <stdexcept>

#include "core/win32/utils/scanengine/api.h"

namespace {
constexpr const wchar_t* kHelp =
    LR"(usage: sysmaint scan FOLDER... [--filter TEXT] [--ignore TEXT] [--depth N] [--expand] [--json]

Lists what is in the folders, as it is found: first a folder's own entries, then those of its sub-folders.
Links to folders are listed and never followed.

  --filter TEXT   report only what these entries let through, e.g. "*.tmp,*.log"
  --ignore TEXT   leave out what one of these entries matches
  --depth N       folder levels to list, 1 to 65535; 1 is the folders' own entries. Default: all
  --expand        expand folder macros in the folders' names, such as %temp% or %localappdata%
  --json          one JSON object a line: the items, at the end a summary

An entry is a wildcard for file names, or PATTERN:MTK with three digits: M 0 wildcard, 1 text inside;
T 0 full path, 1 name; K 0 folders, 1 files. Entries are separated by commas.
Filters for files let every folder through; a folder that is refused is not walked into.

example: sysmaint scan "%temp%" --expand --filter "*.tmp,~*:011" --ignore "keep:101" --depth 3
)";

/// Prints what a scan finds and counts it.
class ScanPrinter : public INotifyHandler
{
public:
    explicit ScanPrinter(bool json) : m_json(json), m_begin(GetTickCount64()) {}

    void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override
    {
        const bool folder = notification.getFirst() == kContainerFound;
        unsigned long long size = 0;
        if (const auto* file = dynamic_cast<const IFile*>(item.get()); file != nullptr)
            size = file->getSize();
        (folder ? m_folders : m_files) += 1;
        m_bytes += size;
        if (m_json) {
            std::wstring line = LR"({"type":")" + std::wstring(folder ? L"folder" : L"file") +
                                LR"(","path":)" + jsonString(item->getPath());
            if (!folder)
                line += LR"(,"bytes":)" + std::to_wstring(size);
            results().writeLine(line + L"}");
        } else {
            results().writeLine(printable(item->getPath()) + (folder ? L"\\" : L""));
        }
        if (!results().isOpen())
            throw Exception("File: host\\ScanCommand.cpp\nFunction: ScanPrinter::onNotify\nLine: 0",
                            ERROR_BROKEN_PIPE);
        if (m_progress.isDue()) {
            const ULONGLONG elapsed = GetTickCount64() - m_begin;
            m_progress.show(counts() + L", " +
                            formatCount((m_files + m_folders) * 1000 / (elapsed != 0 ? elapsed : 1)) +
                            L" a second");
        }
    }

    void finish(long code)
    {
        m_progress.clear();
        if (m_json)
            results().writeLine(LR"({"type":"summary","files":)" + std::to_wstring(m_files) +
                                LR"(,"folders":)" + std::to_wstring(m_folders) + LR"(,"bytes":)" +
                                std::to_wstring(m_bytes) + LR"(,"code":)" + std::to_wstring(code) + L"}");
        results().flush(); // so that the counts come after what they count
        messages().writeLine((code == ERROR_CANCELLED ? L"cancelled; found so far: " : L"found ") + counts());
    }

private:
    [[nodiscard]] std::wstring counts() const
    {
        return formatCount(m_files) + L" files, " + formatCount(m_folders) + L" folders, " +
               formatBytes(m_bytes);
    }

    bool m_json;
    ULONGLONG m_begin;
    unsigned long long m_files = 0;
    unsigned long long m_folders = 0;
    unsigned long long m_bytes = 0;
    ProgressLine m_progress;
};

/// An engine with its handle for one run of the program.
class Engine
{
public:
    explicit Engine(INotifyHandler& handler) : m_handle(CreateFileScanEngine(L"sysmaint scan"))
    {
        check(m_handle == INVALID_HANDLE_VALUE ? static_cast<long>(GetLastError()) : ERROR_SUCCESS);
        check(FSEngineRegisterHandler(m_handle, handler, kContainerFound, 0, 0));
        check(FSEngineRegisterHandler(m_handle, handler, kLeafFound, 0, 0));
    }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ~Engine() { CloseFileScanEngine(m_handle); }

    /// One root at a time, so that one that cannot be listed does not stand in the way of the others.
    long scan(const wchar_t* folder, int expand, const SharedPtr<IScanValidator>& validator,
              ScanOptions options)
    {
        FSEngineClear(m_handle);
        const long code = FSEngineAddPath(m_handle, folder, expand);
        return code != ERROR_SUCCESS ? code : FSEngineScan(m_handle, cancelEvent(), validator, options);
    }

private:
    static void check(long code)
    {
        if (code != ERROR_SUCCESS)
            throw std::runtime_error("the scan engine cannot be made, error " + std::to_string(code));
    }

    void* m_handle;
};

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--filter", true},
                                      {L"--ignore", true},
                                      {L"--depth", true},
                                      {L"--expand", false},
                                      {L"--json", false}});
    if (arguments.operands().empty())
        throw UsageError{L"which folder?"};
    ScanOptions options;
    options.depthGiven = 1;
    options.depth = static_cast<std::uint16_t>(arguments.number(L"--depth", 1, 65535).value_or(65535));
    const SharedPtr<IScanValidator> validator(DllGetScanValidator(arguments.value(L"--filter", L"").c_str(),
                                                                  arguments.value(L"--ignore", L"").c_str()));
    if (!validator)
        throw UsageError{
            L"an entry of --filter or --ignore does not have exactly three digits after its ':'"};

    ScanPrinter printer(arguments.has(L"--json"));
    Engine engine(printer);
    long result = ERROR_SUCCESS;
    for (const std::wstring& folder : arguments.operands()) {
        const long code = engine.scan(folder.c_str(), arguments.has(L"--expand") ? 1 : 0, validator, options);
        if (code != ERROR_SUCCESS)
            result = code;
        if (code == ERROR_CANCELLED)
            break;
        if (code != ERROR_SUCCESS)
            messages().writeLine(L"scan: " + printable(folder) + L": " + formatCode(code));
    }
    printer.finish(result);
    if (result == ERROR_CANCELLED)
        return kExitCancelled;
    return result == ERROR_SUCCESS ? kExitDone : kExitFailed;
}
} // namespace

const Command kScanCommand = {L"scan", L"list what is in folders", kHelp, &run};
