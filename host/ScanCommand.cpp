#include "Command.h"
#include "Console.h"

#include <stdexcept>

#include "FtpAddress.h"
#include "RegistryRoot.h"
#include "Rules.h"
#include "ScanPrinter.h"

#include "core/win32/registry/api.h"
#include "core/win32/utils/ftp/api.h"
#include "core/win32/utils/scanengine/api.h"

namespace {
constexpr const wchar_t* kHelp =
    LR"(usage: sysmaint scan FOLDER|KEY|FTP... [--filter TEXT] [--ignore TEXT] [--depth N] [--expand]
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

FTP is ftp://[USER@]HOST[:PORT][/FOLDER]; without a user it is anonymous. The password is asked for, or taken
from the environment variable SYSMAINT_FTP_PASSWORD, which is for one account: several are refused then. It is
sent without encryption: there is no TLS.

What begins with a root of the registry is a key; a folder of such a name is given as .\HKCU.

An entry is a wildcard for file names, or PATTERN:MTK with three digits: M 0 wildcard, 1 text inside;
T 0 full path, 1 name; K 0 folders and keys, 1 files and values, 2 both. Entries are separated by commas;
blanks around a comma are part of the pattern. A pattern ends at its entry's first ':', so a drive's path
cannot be one: "*\keep\*:001" is a pattern for full paths. Filters for files let every folder through, and
filters for folders every file; a folder that is refused is not walked into.

What cannot be listed is told on standard error, and the rest is listed all the same; the exit code is 1
then. In JSON it is an object of the type "error" with its path and code. For the eye, control characters
of names are shown as '?' and the data of values is cut; JSON has all of both: of a value the key, the name,
the valueType and its data, which is a number for REG_DWORD and REG_QWORD, a text or a list of texts for the
types of text, and hexadecimal digits for every other type and for numbers of another size. One closing zero
of a text is left out, of a list those that end its texts and itself; data that is formed in any other way
has all its bytes in "hex" besides. Half a surrogate pair is written as \udXXX.

example: sysmaint scan "%temp%" --expand --filter "*.tmp,~*:011" --ignore "keep:101" --depth 3
)";

/// The engines with their handles for one run of the program.
class Engines
{
public:
    explicit Engines(INotifyHandler& handler)
        : m_files(CreateFileScanEngine(L"sysmaint scan")),
          m_registry(CreateRegistryScanEngine(L"sysmaint scan")), m_ftp(CreateFtpScanEngine(L"sysmaint scan"))
    {
        for (const unsigned long key : {kContainerFound, kLeafFound, kListingFailed}) {
            check(FSEngineRegisterHandler(m_files, handler, key, 0, 0));
            check(RSEngineRegisterHandler(m_registry, handler, key, 0, 0));
            check(FtpSEngineRegisterHandler(m_ftp, handler, key, 0, 0));
        }
    }
    Engines(const Engines&) = delete;
    Engines& operator=(const Engines&) = delete;
    ~Engines()
    {
        CloseFileScanEngine(m_files);
        CloseRegistryScanEngine(m_registry);
        CloseFtpScanEngine(m_ftp);
    }

    /// One root at a time, so a root that cannot be listed does not affect the others.
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
    long scanFtp(const FtpAddress& address, const SharedPtr<IScanValidator>& validator, ScanOptions options)
    {
        FtpSEngineClear(m_ftp);
        const bool isAnonymous = address.user.empty(); // with the password that is usual then
        const long code = FtpSEngineAddPath(m_ftp, address.host.c_str(), address.path.c_str(), address.port,
                                            isAnonymous ? nullptr : address.user.c_str(),
                                            isAnonymous ? nullptr : address.password.c_str());
        return code != ERROR_SUCCESS ? code : FtpSEngineScan(m_ftp, cancelEvent(), validator, options);
    }

private:
    static void check(long code)
    {
        if (code != ERROR_SUCCESS)
            throw std::runtime_error("the scan engine cannot be made, error " + std::to_string(code));
    }

    void* m_files;
    void* m_registry;
    void* m_ftp;
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

/// One operand: a folder, a key or a folder on a server.
long scanRoot(Engines& engines, const std::wstring& operand, const Arguments& arguments,
              const SharedPtr<IScanValidator>& validator, ScanOptions options)
{
    if (std::optional<FtpAddress> address = parseFtpAddress(operand)) {
        if (!findPassword(*address))
            return ERROR_CANCELLED;
        return engines.scanFtp(*address, validator, options);
    }
    if (const std::optional<RegistryRoot> key = parseRegistryRoot(operand))
        return engines.scanKey(*key, registryView(arguments), validator, options);
    return engines.scanFolder(operand.c_str(), arguments.has(L"--expand") ? 1 : 0, validator, options);
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
    const SharedPtr<IScanValidator> validator = makeValidator(arguments);
    registryView(arguments); // refuses a wrong one before anything is scanned
    std::vector<FtpAddress> addresses;
    for (const std::wstring& operand : arguments.operands())
        if (std::optional<FtpAddress> address = parseFtpAddress(operand))
            addresses.push_back(*std::move(address));
    requireOneAccount(addresses);

    ScanPrinter printer(arguments.has(L"--json"));
    Engines engines(printer);
    long result = ERROR_SUCCESS;
    for (const std::wstring& folder : arguments.operands()) {
        const unsigned long long failures = printer.failures();
        const long code = scanRoot(engines, folder, arguments, validator, options);
        if (code != ERROR_SUCCESS)
            result = code;
        if (code == ERROR_CANCELLED || !results().isOpen()) // main reports it
            break;
        // What could not be listed has been reported already, with its own path.
        if (code != ERROR_SUCCESS && printer.failures() == failures)
            printer.fail(folder, code);
    }
    printer.finish(result);
    if (result == ERROR_CANCELLED)
        return kExitCancelled;
    return result == ERROR_SUCCESS && printer.failures() == 0 ? kExitDone : kExitFailed;
}
} // namespace

const Command kScanCommand = {L"scan", L"list what is in folders, registry keys or FTP servers", kHelp, &run};
