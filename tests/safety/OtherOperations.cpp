#include "safety/Round.h"

#include "core/win32/registry/api.h"
#include "support/FolderExchange.h"
#include "support/Wipe.h"

namespace {
constexpr std::size_t kTop = 8; // of "registry"

std::wstring subKey(const std::string& path)
{
    std::wstring names(path.begin() + kTop,
                       path.begin() + static_cast<std::ptrdiff_t>(std::min(path.find(':'), path.size())));
    std::replace(names.begin(), names.end(), L'/', L'\\');
    return kScratchKey + names;
}

std::wstring valueName(const std::string& path)
{
    const std::size_t colon = path.find(':');
    return colon == std::string::npos
               ? std::wstring()
               : std::wstring(path.begin() + static_cast<std::ptrdiff_t>(colon) + 1, path.end());
}

void nameAll(Round& round, const std::string& path)
{
    for (const std::string& each : round.within(path))
        round.name(each);
}

class RegistryDeleter : public INotifyHandler
{
public:
    explicit RegistryDeleter(Round& round) : m_round(round), m_later(round.choices.oneIn(2)) {}
    void onNotify(const Notification&, const SharedPtr<ScanItem>& item) override
    {
        m_round.moment();
        if (m_round.choices.oneIn(3))
            return;
        if (m_later)
            m_found.push_back(item);
        else
            destroy(*item);
    }
    void finish()
    {
        for (; !m_found.empty(); m_found.pop_back())
            destroy(*m_found.back());
    }

private:
    void destroy(ScanItem& item)
    {
        const std::wstring start = std::wstring(L"HKEY_LOCAL_MACHINE\\") + kScratchKey;
        std::wstring text = item.getPath();
        auto* value = dynamic_cast<IRegistryValue*>(&item);
        IRegistryItem* any = value;
        if (value == nullptr)
            any = &dynamic_cast<IRegistryKey&>(item);
        const std::wstring name = value == nullptr ? L"" : value->getName();
        text.resize(text.size() - (value == nullptr ? 0 : name.size() + 1));
        std::string path = "registry" + utf8(text.substr(std::min(start.size(), text.size())));
        std::replace(path.begin(), path.end(), '\\', '/');
        if (value != nullptr)
            path += ":" + utf8(name);
        if (m_round.kind(path) == '-') {
            m_round.violation("found " + utf8(item.getPath()));
            return;
        }
        if (path == "registry/root/sub" && m_round.choices.oneIn(3)) { // another puts a link there
            RegDeleteTreeW(HKEY_LOCAL_MACHINE, subKey(path).c_str());
            makeKeyLink(subKey(path));
        }
        nameAll(m_round, path);
        if (codeOf([&] { any->deleteItem(); }) == ERROR_SUCCESS)
            m_round.claimGone(path);
    }

    Round& m_round;
    bool m_later;
    std::vector<SharedPtr<ScanItem>> m_found;
};

/// One argument as the command line needs it: what is quoted may end in backslashes.
std::wstring asArgument(const std::wstring& text)
{
    const std::size_t last = text.find_last_not_of(L'\\');
    return L" \"" + text + std::wstring(text.size() - (last == std::wstring::npos ? 0 : last + 1), L'\\') +
           L"\"";
}

DWORD runProgram(std::wstring line)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES; // to nowhere
    PROCESS_INFORMATION process{};
    DWORD code = STILL_ACTIVE;
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        return code;
    WaitForSingleObject(process.hProcess, 60000);
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return code;
}
} // namespace

void changeRegistryItem(Round& round)
{
    const std::string path =
        round.target(round.choices.oneIn(2) ? "registry/root/sub" : "registry/root", "kkvL");
    const bool create = round.choices.oneIn(4);
    round.plan({Trouble::failingCall});
    round.form = {subKey(path), "plain"};
    if (round.choices.oneIn(3)) { // case tells no keys apart
        CharUpperW(round.form.text.data());
        round.form.name = "upper case";
    }
    const wchar_t* key = round.form.text.c_str();
    std::unique_ptr<IRegistryItem> item;
    if (round.kind(path) != 'v')
        item.reset(DllGetRegistryKey(HKEY_LOCAL_MACHINE, key));
    else
        item.reset(DllGetRegistryValue(HKEY_LOCAL_MACHINE, key, valueName(path).c_str(), L"new"));
    if (create && round.kind(path) == 'v')
        round.name(path);
    if (!create)
        nameAll(round, path);
    const unsigned long code = codeOf([&] { create ? item->create() : item->deleteItem(); });
    if (code == ERROR_SUCCESS && !create)
        round.claimGone(path);
}

void scanRegistryAndDelete(Round& round)
{
    const std::string root = round.choices.oneIn(2) ? "registry/root" : round.target("registry/root", "k");
    round.plan({Trouble::cancel, Trouble::failingCall});
    round.form = {subKey(root), "plain"};
    RegistryDeleter deleter(round);
    void* engine = CreateRegistryScanEngine(L"safety");
    RSEngineRegisterHandler(engine, deleter, kContainerFound, 0, 0);
    RSEngineRegisterHandler(engine, deleter, kLeafFound, 0, 0);
    RSEngineAddPath(engine, HKEY_LOCAL_MACHINE, round.form.text.c_str());
    ScanOptions options;
    options.depthGiven = 1;
    options.depth = 65535;
    RSEngineScan(engine, round.cancelEvent(), SharedPtr<IScanValidator>(DllGetScanValidator()), options);
    RSEngineClear(engine);
    CloseRegistryScanEngine(engine);
    deleter.finish();
}

void runHost(Round& round)
{
    wchar_t program[MAX_PATH];
    std::wstring line(program, GetModuleFileNameW(nullptr, program, MAX_PATH));
    line = L"\"" + line.substr(0, line.find_last_of(L'\\')) + L"\\sysmaint.exe\"";
    const unsigned command = round.choices.below(5); // 0 scan, 1 and 2 wipe file, then wipe tree
    const bool nothing = round.choices.oneIn(4);
    const std::string path =
        round.choices.oneIn(6) ? "root" : round.target("root", command >= 3 ? "dddlf-" : "fffdl-");
    if (nothing)
        round.form = {round.choices.of(std::vector<std::wstring>{L"", L" ", L"\\\\?\\", L"\\??\\"}),
                      "nothing"};
    else
        round.write(path, command >= 3);
    line += command == 0 ? L" scan" : command <= 2 ? L" wipe file" : L" wipe tree";
    if (nothing && command >= 1 && round.form.text.empty() && round.choices.oneIn(2)) // it spoils the others
        line += asArgument(L"report");
    line += asArgument(round.form.text) + (command == 0 ? L"" : L" --yes");
    const char kind = round.kind(path);
    bool whole = true;
    if (!nothing && command >= 1 && (kind == 'l' || (kind == 'f' && command <= 2)))
        round.name(path, true);
    else if (!nothing && command >= 3 && kind == 'd')
        for (const std::string& each : round.within(path)) // a file with other names stays
            each == "root/hard" ? void(whole = false) : round.name(each);
    const DWORD code = runProgram(line);
    if (!nothing && (command == 1 || command == 2))
        round.waits(path, static_cast<long>(code));
    if (code == 0 && nothing && command != 0)
        round.violation("took that for something to wipe");
    if (code == 0 && !nothing && whole && command != 0)
        round.claimGone(path);
    if (code > 2 && code != 130)
        round.violation("exit code " + std::to_string(code));
}
