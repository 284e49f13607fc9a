#include "Command.h"
#include "Console.h"

#include <stdexcept>

#include "RegistryRoot.h"

#include "core/win32/utils/scanengine/api.h"

namespace {
constexpr const wchar_t* kHelp =
    LR"(usage: sysmaint scan FOLDER|KEY... [--filter TEXT] [--ignore TEXT] [--depth N] [--expand]
                     [--view 32|64] [--json]

Lists what is in the folders, as it is found: first a folder's own entries, then those of its sub-folders.
Links to folders are listed and never followed. A key is a registry key such as HKLM\Software\Vendor or
HKEY_CURRENT_USER\Software: its values and sub-keys are listed likewise.

  --filter TEXT   report only what these entries let through, e.g. "*.tmp,*.log"
  --ignore TEXT   leave out what one of these entries matches
  --depth N       folder levels to list, 1 to 65535; 1 is the folders' own entries. Default: all
  --expand        expand folder macros in the folders' names, such as %temp% or %localappdata%
  --view 32|64    the view of the registry; default: the program's own
  --json          one JSON object a line: the items, at the end a summary

An entry is a wildcard for file names, or PATTERN:MTK with three digits: M 0 wildcard, 1 text inside;
T 0 full path, 1 name; K 0 folders and keys, 1 files and values. Entries are separated by commas.
Filters for files let every folder through; a folder that is refused is not walked into.

example: sysmaint scan "%temp%" --expand --filter "*.tmp,~*:011" --ignore "keep:101" --depth 3
)";

/// Prints what a scan finds and counts it.
class ScanPrinter : public INotifyHandler
{
public:
    explicit ScanPrinter(bool json) : m_json(json), m_begin(GetTickCount64()) {}

    void onNotify(const Notification&, const SharedPtr<ScanItem>& item) override
    {
        const std::wstring path = item->getPath();
        if (auto* value = dynamic_cast<IRegistryValue*>(item.get()); value != nullptr) {
            ++m_values;
            printValue(path, *value);
        } else if (item->getType() == kRegistryKeyItem) {
            ++m_keys;
            print(L"key", path, L"");
        } else if (const auto* file = dynamic_cast<const IFile*>(item.get()); file != nullptr) {
            ++m_files;
            m_bytes += file->getSize();
            print(L"file", path, LR"(,"bytes":)" + std::to_wstring(file->getSize()));
        } else {
            ++m_folders;
            print(L"folder", path, L"");
        }
        if (!results().isOpen())
            throw Exception("File: host\\ScanCommand.cpp\nFunction: ScanPrinter::onNotify\nLine: 0",
                            ERROR_BROKEN_PIPE);
        if (!results().isTerminal() &&
            m_progress.isDue()) { // results on the same terminal show it by themselves
            const ULONGLONG elapsed = GetTickCount64() - m_begin;
            m_progress.show(
                counts() + L", " +
                formatCount((m_files + m_folders + m_keys + m_values) * 1000 / (elapsed != 0 ? elapsed : 1)) +
                L" a second");
        }
    }

    void finish(long code)
    {
        m_progress.clear();
        if (m_json)
            results().writeLine(
                LR"({"type":"summary","files":)" + std::to_wstring(m_files) + LR"(,"folders":)" +
                std::to_wstring(m_folders) + LR"(,"bytes":)" + std::to_wstring(m_bytes) +
                (hasRegistry()
                     ? LR"(,"keys":)" + std::to_wstring(m_keys) + LR"(,"values":)" + std::to_wstring(m_values)
                     : L"") +
                LR"(,"code":)" + std::to_wstring(code) + L"}");
        results().flush(); // so that the counts come after what they count
        messages().writeLine((code == ERROR_CANCELLED ? L"cancelled; found so far: " : L"found ") + counts());
    }

private:
    /// One item in one line; `more` is what JSON says besides.
    void print(const wchar_t* type, const std::wstring& path, const std::wstring& more) const
    {
        if (m_json)
            results().writeLine(LR"({"type":")" + std::wstring(type) + LR"(","path":)" + jsonString(path) +
                                more + L"}");
        else
            results().writeLine(printable(path) + (more.empty() ? L"\\" : L""));
    }

    void printValue(const std::wstring& path, IRegistryValue& value) const
    {
        std::wstring type;
        std::wstring data;
        try {
            type = typeName(value.getValueType());
            data = shortData(value);
            type = typeName(value.getValueType()); // as it was read with the data
        } catch (const Exception& gone) {          // deleted since it was found, or not to be read by us
            data = formatCode(static_cast<long>(gone.getCode()));
        }
        if (m_json)
            print(L"value", path, LR"(,"valueType":)" + jsonString(type) + LR"(,"data":)" + jsonString(data));
        else
            results().writeLine(printable(path) + L" = " + type + L" " + data);
    }

    [[nodiscard]] bool hasRegistry() const { return m_keys + m_values != 0; }

    [[nodiscard]] std::wstring counts() const
    {
        std::wstring text = formatCount(m_files) + L" files, " + formatCount(m_folders) + L" folders, " +
                            formatBytes(m_bytes);
        if (hasRegistry())
            text += L", " + formatCount(m_keys) + L" keys, " + formatCount(m_values) + L" values";
        return text;
    }

    bool m_json;
    ULONGLONG m_begin;
    unsigned long long m_files = 0;
    unsigned long long m_folders = 0;
    unsigned long long m_bytes = 0;
    unsigned long long m_keys = 0;
    unsigned long long m_values = 0;
    ProgressLine m_progress;
};

/// The engines with their handles for one run of the program.
class Engines
{
public:
    explicit Engines(INotifyHandler& handler)
        : m_files(CreateFileScanEngine(L"sysmaint scan")),
          m_registry(CreateRegistryScanEngine(L"sysmaint scan"))
    {
        for (const unsigned long key : {kContainerFound, kLeafFound}) {
            check(FSEngineRegisterHandler(m_files, handler, key, 0, 0));
            check(RSEngineRegisterHandler(m_registry, handler, key, 0, 0));
        }
    }
    Engines(const Engines&) = delete;
    Engines& operator=(const Engines&) = delete;
    ~Engines()
    {
        CloseFileScanEngine(m_files);
        CloseRegistryScanEngine(m_registry);
    }

    /// One root at a time, so that one that cannot be listed does not stand in the way of the others.
    long scanFolder(const wchar_t* folder, int expand, const SharedPtr<IScanValidator>& validator,
                    ScanOptions options)
    {
        FSEngineClear(m_files);
        const long code = FSEngineAddPath(m_files, folder, expand);
        return code != ERROR_SUCCESS ? code : FSEngineScan(m_files, cancelEvent(), validator, options);
    }
    long scanKey(const RegistryRoot& key, unsigned long view, const SharedPtr<IScanValidator>& validator,
                 ScanOptions options)
    {
        RSEngineClear(m_registry);
        const long code = RSEngineAddPath(m_registry, key.root, key.subKey.c_str(), view);
        return code != ERROR_SUCCESS ? code : RSEngineScan(m_registry, cancelEvent(), validator, options);
    }

private:
    static void check(long code)
    {
        if (code != ERROR_SUCCESS)
            throw std::runtime_error("the scan engine cannot be made, error " + std::to_string(code));
    }

    void* m_files;
    void* m_registry;
};

unsigned long registryView(const Arguments& arguments)
{
    if (!arguments.has(L"--view"))
        return 0;
    const std::wstring view = arguments.value(L"--view", L"");
    if (view != L"32" && view != L"64")
        throw UsageError{L"--view takes 32 or 64"};
    return view == L"32" ? kRegistryView32 : kRegistryView64;
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--filter", true},
                                      {L"--ignore", true},
                                      {L"--depth", true},
                                      {L"--expand", false},
                                      {L"--view", true},
                                      {L"--json", false}});
    if (arguments.operands().empty())
        throw UsageError{L"which folder or key?"};
    ScanOptions options;
    options.depthGiven = 1;
    options.depth = static_cast<std::uint16_t>(arguments.number(L"--depth", 1, 65535).value_or(65535));
    const SharedPtr<IScanValidator> validator(DllGetScanValidator(arguments.value(L"--filter", L"").c_str(),
                                                                  arguments.value(L"--ignore", L"").c_str()));
    if (!validator)
        throw UsageError{
            L"an entry of --filter or --ignore does not have exactly three digits after its ':'"};

    const unsigned long view = registryView(arguments);

    ScanPrinter printer(arguments.has(L"--json"));
    Engines engines(printer);
    long result = ERROR_SUCCESS;
    for (const std::wstring& folder : arguments.operands()) {
        const std::optional<RegistryRoot> key = parseRegistryRoot(folder);
        const long code =
            key ? engines.scanKey(*key, view, validator, options)
                : engines.scanFolder(folder.c_str(), arguments.has(L"--expand") ? 1 : 0, validator, options);
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

const Command kScanCommand = {L"scan", L"list what is in folders or registry keys", kHelp, &run};
