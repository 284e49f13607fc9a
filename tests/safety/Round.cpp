#include "safety/Round.h"

#include <cstdio>

#include "support/FolderExchange.h"
#include "support/Wipe.h"

namespace {
/// Lets one call of an imported function fail as long as the result lives; null where it is not imported.
template <ImportName Name, class Function>
std::shared_ptr<void> failing(long call)
{
    using Import = CountedImport<Name, Function>;
    try {
        auto import = std::make_shared<Import>(sysmaintModule());
        typename Import::Value result{};
        if constexpr (std::is_same_v<typename Import::Value, HANDLE>)
            result = INVALID_HANDLE_VALUE;
        else if constexpr (std::is_same_v<typename Import::Value, LSTATUS>)
            result = ERROR_ACCESS_DENIED;
        import->failCall(call, result, ERROR_ACCESS_DENIED);
        return import;
    } catch (const std::runtime_error&) {
        return nullptr;
    }
}

using OpenFile = HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
constexpr std::array<std::shared_ptr<void> (*)(long), 14> kFailing = {
    failing<"CreateFileW", OpenFile>,
    failing<"DeleteFileW", decltype(&DeleteFileW)>,
    failing<"RemoveDirectoryW", decltype(&RemoveDirectoryW)>,
    failing<"SetFileAttributesW", decltype(&SetFileAttributesW)>,
    failing<"GetFileAttributesW", decltype(&GetFileAttributesW)>,
    failing<"FindFirstFileW", decltype(&FindFirstFileW)>,
    failing<"FindFirstFileExW", decltype(&FindFirstFileExW)>,
    failing<"FindNextFileW", decltype(&FindNextFileW)>,
    failing<"GetFullPathNameW", decltype(&GetFullPathNameW)>,
    failing<"GetFileInformationByHandle", decltype(&GetFileInformationByHandle)>,
    failing<"WriteFile", decltype(&WriteFile)>,
    failing<"SetEndOfFile", decltype(&SetEndOfFile)>,
    failing<"RegOpenKeyExW", decltype(&RegOpenKeyExW)>,
    failing<"RegDeleteValueW", decltype(&RegDeleteValueW)>};
} // namespace

Round::Round(World& world, unsigned seed, unsigned number)
    : choices(seed, number), m_world(world), m_seed(seed), m_number(number),
      m_home(choices.oneIn(2) ? "" : "root"), m_cancel(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    SetCurrentDirectoryW(m_world.windowsPath(m_home).c_str());
}

Round::~Round()
{
    CloseHandle(m_cancel);
}

const std::wstring& Round::write(const std::string& path, bool folder)
{
    const std::wstring world = m_world.windowsPath("");
    std::wstring home = m_world.windowsPath(m_home);
    if (home.back() == L'\\')
        home.pop_back();
    form = randomForm(choices, m_world.windowsPath(path), world.substr(0, world.size() - 1), home, folder);
    return form.text;
}

void Round::plan(std::initializer_list<Trouble> possible)
{
    if (!choices.oneIn(2))
        return;
    trouble = choices.of(possible);
    m_momentsLeft = choices.oneIn(2) ? 1 : 1 + choices.below(12);
    if (trouble == Trouble::failingCall)
        m_failing = choices.of(kFailing)(1 + static_cast<long>(choices.below(6)));
}

void Round::moment()
{
    if (m_momentsLeft == 0 || --m_momentsLeft != 0)
        return;
    if (trouble == Trouble::otherFolder)
        m_came =
            SetCurrentDirectoryW(m_world.windowsPath(m_home.empty() ? "other" : "other/root").c_str()) != 0;
    else if (trouble == Trouble::link)
        m_came = exchange(m_world.windowsPath("root/sub"), m_world.windowsPath("aside/sub"));
    else if (trouble == Trouble::cancel)
        m_came = SetEvent(m_cancel) != 0;
}

void Round::endTrouble()
{
    m_failing.reset();
    SetCurrentDirectoryW(m_world.windowsPath("").c_str());
    if (trouble != Trouble::link || !m_came)
        return;
    constexpr long long kRename = 82;
    const std::string sub = m_world.unixPath("root/sub");
    const std::string aside = m_world.unixPath("aside/sub");
    m_gone.erase("root/sub");
    // The link may be gone where the folder was named: then only that comes back.
    const bool linkGone = unixCall(kRename, aside.c_str(), sub.c_str()) == 0;
    if (linkGone && m_named.count("root/sub") != 0)
        m_named.insert("aside/sub");
    if (!linkGone && !exchange(m_world.windowsPath("root/sub"), m_world.windowsPath("aside/sub")))
        violation("root/sub is still held open");
}

std::vector<std::string> Round::within(const std::string& path) const
{
    std::vector<std::string> result;
    for (const auto& [each, thing] : m_world.original())
        if (each.compare(0, path.size(), path) == 0 &&
            (each.size() == path.size() || each[path.size()] == '/' || each[path.size()] == ':'))
            result.push_back(each);
    return result;
}

char Round::kind(const std::string& path) const
{
    const auto found = m_world.original().find(path);
    return found == m_world.original().end() ? '-' : found->second.kind;
}

std::string Round::target(const std::string& top, const std::string& kinds)
{
    const char wanted = choices.of(kinds);
    std::vector<std::string> possible;
    for (const std::string& path : within(top)) {
        if (kind(path) == wanted)
            possible.push_back(path);
        for (const char* end : {".", " ", ". "})
            if (wanted == '-' && path != top && kind(path + end) == '-' && path.size() < 250)
                possible.push_back(path + end);
    }
    return possible.empty() ? top : choices.of(possible);
}

void Round::name(const std::string& path, bool data)
{
    m_named.insert(path);
    if (data && path == "root/hard") // the same data under two names
        m_named.insert("vault/hard");
}

void Round::claimContent(const std::string& path, const std::string& bytes)
{
    m_contents[path] = " " + std::to_string(std::hash<std::string>{}(bytes));
}

void Round::waits(const std::string& path, long code)
{
    if (code != ERROR_SUCCESS && code != ERROR_CANCELLED && (kind(path) == 'f' || kind(path) == '-'))
        m_waiting.insert(path);
}

HANDLE Round::lock(const std::string& path) const
{
    return ::CreateFileW((L"\\\\?\\" + m_world.windowsPath(path)).c_str(), GENERIC_READ, 0, nullptr,
                         OPEN_EXISTING, 0, nullptr);
}

void Round::violation(const std::string& what)
{
    constexpr std::array<const char*, 5> kTroubles = {"none", "current folder", "link", "cancel",
                                                      "failing call"};
    std::printf("violation: --seed %u --round %u: %s \"%s\" (%s, in %s), trouble: %s%s: %s\n", m_seed,
                m_number, operation.c_str(), utf8(form.text.substr(0, 600)).c_str(), form.name.c_str(),
                ("/" + m_home).c_str(), kTroubles[static_cast<std::size_t>(trouble)], m_came ? " came" : "",
                what.c_str());
    m_clean = false;
}

void Round::judgeBootList()
{
    std::wstring list = takeBootList();
    if (list.empty())
        return;
    if (list.compare(0, 4, std::wstring(L"\0\0\r\n", 4)) != 0)
        violation("the boot list has no header");
    for (std::size_t begin = 4, end = 0; begin < list.size(); begin = end + 2) {
        end = std::min(list.find(L"\r\n", begin), list.size());
        const std::wstring line = list.substr(begin, end - begin);
        bool named = false;
        for (const std::string& path : m_waiting) {
            const std::wstring start = L"*FileShred*\t*\\??\\" + m_world.windowsPath(path) + L"*\t*";
            named = named || line.compare(0, start.size(), start) == 0;
        }
        if (!named)
            violation("on the boot list: " + utf8(line));
    }
}

bool Round::judge()
{
    endTrouble();
    const Picture now = m_world.look();
    for (const auto& [path, thing] : m_world.original()) {
        const auto found = now.find(path);
        const bool same = found != now.end() && found->second == thing;
        if (!same && m_named.count(path) == 0)
            violation(path + (found == now.end() ? " is gone" : " is changed"));
        m_destroyed = m_destroyed || !same;
    }
    for (const auto& [path, thing] : now) {
        if (m_world.original().count(path) == 0 && mayAppear.count(path) == 0)
            violation(path + " has appeared");
        if (m_gone.count(path) != 0)
            violation(path + " is there, though said to be gone");
    }
    for (const auto& [path, hash] : m_contents) {
        const auto found = now.find(path);
        if (found == now.end() || !found->second.content.ends_with(hash))
            violation(path + " has not the content that was written");
    }
    judgeBootList();
    m_world.restore(now);
    return m_clean;
}
