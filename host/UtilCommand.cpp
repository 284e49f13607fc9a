#include "Command.h"
#include "Console.h"
#include "OwnedText.h"
#include "UtilChecksum.h"

#include "core/win32/utils/files/api.h"
#include "core/win32/utils/paths/api.h"
#include "core/win32/utils/security/api.h"
#include "core/win32/utils/services/api.h"
#include "core/win32/utils/shell/api.h"
#include "core/win32/utils/versions/api.h"

namespace {
constexpr const wchar_t* kHelp = LR"(usage: sysmaint util checksum FILE... [--algorithm NAME] [--json]
       sysmaint util checksum --check LIST...
       sysmaint util services [--running] [--json]
       sysmaint util whoami [--json]
       sysmaint util icons FILE --out FOLDER [--size PIXELS]
       sysmaint util fileversion FILE... [--json]

  checksum     prints lines in the format of sha256sum, or checks the lists of such lines; NAME is sha256
               (unless given), sha1, md5 or crc32, and a list tells it by the length of its sums
  services     the services with their state and process
  whoami       the user, and with what rights this program runs
  icons        writes each icon of a program or library as icon-1.bmp, ... to a folder; no file is replaced
  fileversion  what programs and libraries say of themselves

  --check      the operands are lists, in UTF-8 or UTF-16, of plain or of tagged lines ("SHA256 (name) =
               sum"); each file is told as OK or FAILED. Lines that begin with # are remarks; any other line
               that is no checksum is counted and makes the check fail, as does a list without one
  --running    only services that run
  --size       of the icons, 1 to 256 (32)
  --json       one object per line

example: sysmaint util checksum C:\setup.exe --algorithm sha1
)";

int failed(const std::wstring& what, long code)
{
    messages().writeLine(L"util: " + printable(what) + L": " + formatCode(code));
    return kExitFailed;
}

std::wstring member(const wchar_t* name, std::wstring_view text)
{
    return jsonString(name) + L":" + jsonString(text);
}

const wchar_t* stateName(unsigned long state)
{
    switch (state) {
    case SERVICE_STOPPED:
        return L"stopped";
    case SERVICE_RUNNING:
        return L"running";
    case SERVICE_PAUSED:
        return L"paused";
    default:
        return L"changing";
    }
}

int services(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--running", false}, {L"--json", false}});
    if (!arguments.operands().empty())
        throw UsageError{L"services takes no operand"};
    OwnedBuffer<ServiceRecord> records;
    std::size_t count = 0;
    const unsigned long states = arguments.has(L"--running") ? SERVICE_ACTIVE : 0;
    if (const long code = ServiceEnumerate(0, states, records.target(), &count); code != ERROR_SUCCESS)
        return failed(L"services", code);
    for (std::size_t i = 0; i < count; ++i) {
        const ServiceRecord& each = records.get()[i];
        if (arguments.has(L"--json")) {
            results().writeLine(L"{" + member(L"name", each.name) + L"," +
                                member(L"displayName", each.displayName) + L"," +
                                member(L"state", stateName(each.state)) + L",\"processId\":" +
                                std::to_wstring(each.processId) + L"}");
            continue;
        }
        std::wstring line = stateName(each.state);
        line.resize(10, L' ');
        line += each.processId != 0 ? std::to_wstring(each.processId) : L"-";
        line.resize(std::max<std::size_t>(line.size() + 1, 18), L' ');
        results().writeLine(line + printable(each.name) + L"  " + printable(each.displayName));
    }
    return kExitDone;
}

std::wstring integrityName(unsigned long level)
{
    const wchar_t* const names[] = {L"untrusted", L"low", L"medium", L"high", L"system"};
    const unsigned long step = level >> 12U;
    return step < 5 ? names[step] : std::to_wstring(level);
}

int whoami(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--json", false}});
    if (!arguments.operands().empty())
        throw UsageError{L"whoami takes no operand"};
    OwnedBuffer<wchar_t> domain;
    OwnedBuffer<wchar_t> name;
    unsigned long kind = 0;
    unsigned long integrity = 0;
    int elevated = 0;
    int administrator = 0;
    const std::wstring sid = textOf([](wchar_t** text) { return SidOfCurrentUser(text); });
    long code = SidToAccount(sid.c_str(), domain.target(), name.target(), &kind);
    if (code == ERROR_SUCCESS)
        code = TokenHasElevation(nullptr, &elevated);
    if (code == ERROR_SUCCESS)
        code = TokenGetIntegrity(nullptr, &integrity);
    if (code == ERROR_SUCCESS)
        code = UserIsAdministrator(&administrator);
    if (code != ERROR_SUCCESS)
        return failed(L"whoami", code);
    const std::wstring user = std::wstring(domain.get()) + L"\\" + name.get();
    if (arguments.has(L"--json")) {
        const auto flag = [](int value) { return value != 0 ? L"true" : L"false"; };
        results().writeLine(L"{" + member(L"user", user) + L"," + member(L"sid", sid) +
                            L",\"administrator\":" + flag(administrator) + L",\"elevated\":" +
                            flag(elevated) + L"," + member(L"integrity", integrityName(integrity)) + L"}");
        return kExitDone;
    }
    const auto answer = [](int value) { return value != 0 ? L"yes" : L"no"; };
    results().writeLine(L"user:           " + printable(user));
    results().writeLine(L"SID:            " + sid);
    results().writeLine(std::wstring(L"administrator:  ") + answer(administrator));
    results().writeLine(std::wstring(L"elevated:       ") + answer(elevated));
    results().writeLine(L"integrity:      " + integrityName(integrity));
    return kExitDone;
}

/// Whether Win32 would take a device, or a folder without a name's last dots and blanks: the normal form of
/// such a path is the literal one. Whoever writes that form himself means it.
bool isAlteredPath(const std::wstring& path)
{
    constexpr std::wstring_view kLiteral = LR"(\\?\)";
    const std::wstring normal =
        textOf([&](wchar_t** target) { return PathNormalizeW(path.c_str(), target); });
    return normal.starts_with(kLiteral) && !path.starts_with(kLiteral);
}

int icons(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--out", true}, {L"--size", true}});
    if (arguments.operands().size() != 1 || !arguments.has(L"--out"))
        throw UsageError{L"which file, and --out FOLDER?"};
    const std::wstring& file = arguments.operands()[0];
    const std::wstring folder = arguments.value(L"--out", L"");
    const auto size = static_cast<int>(arguments.number(L"--size", 1, 256).value_or(32));
    if (isAlteredPath(folder))
        throw UsageError{L"--out: a folder cannot be named '" + printable(folder) + L"'"};
    unsigned long count = 0;
    if (const long code = IconCount(file.c_str(), &count); code != ERROR_SUCCESS)
        return failed(file, code);
    if (count == 0)
        return failed(file, ERROR_RESOURCE_NAME_NOT_FOUND);
    int result = kExitDone;
    for (unsigned long i = 0; i < count; ++i) {
        if (isCancelled())
            return kExitCancelled;
        void* icon = nullptr;
        OwnedBuffer<wchar_t> path;
        const std::wstring stem = L"icon-" + std::to_wstring(i + 1);
        long code = IconExtract(file.c_str(), static_cast<int>(i), size, &icon);
        if (code == ERROR_SUCCESS) // only when there is something to write there
            if (const long refused = FolderCreateTree(folder.c_str()); refused != ERROR_SUCCESS) {
                IconDestroy(icon);
                return failed(folder, refused);
            }
        if (code == ERROR_SUCCESS)
            code = PathMakeUnique(folder.c_str(), stem.c_str(), L"bmp", path.target());
        if (code == ERROR_SUCCESS)
            code = IconToBitmapFile(icon, path.get());
        if (icon != nullptr)
            IconDestroy(icon);
        if (code == ERROR_SUCCESS)
            results().writeLine(printable(path.get()));
        else
            result = failed(stem, code);
    }
    return result;
}

int fileVersion(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--json", false}});
    if (arguments.operands().empty())
        throw UsageError{L"which file?"};
    int result = kExitDone;
    for (const std::wstring& file : arguments.operands()) {
        unsigned long long version = 0;
        OwnedBuffer<wchar_t> text;
        if (const long code = VersionGetFileVersion(file.c_str(), &version, text.target());
            code != ERROR_SUCCESS) {
            result = failed(file, code);
            continue;
        }
        const auto said = [&](const wchar_t* name) {
            return textOf([&](wchar_t** target) { return VersionGetString(file.c_str(), name, target); });
        };
        const std::wstring product = said(L"ProductName");
        const std::wstring company = said(L"CompanyName");
        const std::wstring description = said(L"FileDescription");
        if (arguments.has(L"--json"))
            results().writeLine(L"{" + member(L"file", file) + L"," + member(L"version", text.get()) + L"," +
                                member(L"product", product) + L"," + member(L"company", company) + L"," +
                                member(L"description", description) + L"}");
        else
            results().writeLine(printable(file) + L": " + text.get() + L"  " + printable(description) +
                                L"  " + printable(product) + L"  " + printable(company));
    }
    return result;
}

int run(const std::vector<std::wstring>& words)
{
    const struct
    {
        const wchar_t* name;
        int (*run)(const std::vector<std::wstring>& words);
    } parts[] = {{L"checksum", checksumCommand},
                 {L"services", services},
                 {L"whoami", whoami},
                 {L"icons", icons},
                 {L"fileversion", fileVersion}};
    if (words.empty())
        throw UsageError{L"checksum, services, whoami, icons or fileversion?"};
    if (words[0] == L"--help")
        throw HelpRequest{};
    for (const auto& part : parts)
        if (words[0] == part.name)
            return part.run({words.begin() + 1, words.end()});
    throw UsageError{L"unknown: " + printable(words[0])};
}
} // namespace

const Command kUtilCommand = {L"util", L"checksums, services, rights, icons, versions", kHelp, &run};
