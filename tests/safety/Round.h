#pragma once

#include "safety/PathForms.h"
#include "safety/World.h"
#include "support/Faults.h"
#include "support/Wipe.h"

/// What interferes with a round: at most one thing, at a chosen moment of the operation.
enum class Trouble : char
{
    none = '-',
    otherFolder = 'o', ///< the current folder is another one
    link = 'l',        ///< root/sub is a link to vault/sub
    cancel = 'c',
    failingCall = 'f' ///< a system call of the library fails from the beginning
};

/// One operation on the world, what it may touch, and the judgement of the result.
///
/// The rule: an operation destroys what the caller named and nothing else. What a path names is decided when
/// it is given, name by name; a link is a separate thing; what is behind it was not named. What was reported
/// as done has been done. Refusing and changing nothing is always right.
class Round
{
public:
    Round(World& itsWorld, unsigned itsSeed, unsigned itsNumber)
        : choices(itsSeed, itsNumber), world(itsWorld), seed(itsSeed), number(itsNumber),
          home(choices.oneIn(2) ? "" : "root")
    {
        SetCurrentDirectoryW(world.windowsPath(home).c_str());
    }

    /// A path in some form, which all messages about the round show from now on.
    const std::wstring& write(const std::string& path, bool folder)
    {
        const std::size_t current = world.windowsPath(home.empty() ? "" : home + "/").size();
        return text =
                   pathForm(choices, world.windowsPath(path), world.windowsPath("").size(), current, folder);
    }
    void plan(std::initializer_list<Trouble> possible)
    {
        if (!choices.oneIn(2))
            return;
        trouble = choices.of(possible);
        momentsLeft = choices.oneIn(2) ? 1 : 1 + choices.below(12);
        if (trouble == Trouble::failingCall) {
            const auto& [result, imports] = choices.of(kFaults);
            failing = std::make_unique<FailingCall>(choices.of(imports), result, 1 + choices.below(6));
        }
    }
    /// A moment at which the trouble may come.
    void moment()
    {
        if (momentsLeft == 0 || --momentsLeft != 0)
            return;
        if (trouble == Trouble::otherFolder)
            SetCurrentDirectoryW(world.windowsPath("other/" + home).c_str());
        if (trouble == Trouble::cancel)
            cancel.set();
        linked = trouble == Trouble::link && exchange();
    }

    /// The thing and a container's content, but nothing behind a link.
    [[nodiscard]] static std::vector<std::string> within(const std::string& path, const Picture& picture)
    {
        std::vector<std::string> result;
        for (const auto& [each, thing] : picture)
            if (each == path || each.starts_with(path + "/") || each.starts_with(path + ":"))
                result.push_back(each);
        return result;
    }
    [[nodiscard]] auto within(const std::string& path) const { return within(path, world.original); }
    [[nodiscard]] std::wstring literalPath(const std::string& path) const
    {
        return L"\\\\?\\" + world.windowsPath(path);
    }
    /// World's letter for the thing, '-' for a name that nothing has.
    [[nodiscard]] char kind(const std::string& path) const
    {
        const auto found = world.original.find(path);
        return found == world.original.end() ? '-' : found->second.kind;
    }
    /// A random thing of one of the kinds below `top`.
    std::string target(const std::string& top, const std::string& kinds)
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
    /// The caller names a thing to be destroyed, a key with all its content; with its data when that is
    /// overwritten.
    void name(const std::string& path, bool data = false)
    {
        for (const std::string& each : path.starts_with("registry") ? within(path) : std::vector{path})
            named.insert(each);
        if (data && path == "root/hard") // the same data under two names
            named.insert("vault/hard");
    }
    /// An operation on a thing returned that code. A file that could not be wiped, or a missing one, may be
    /// put on the list for the restart.
    void done(const std::string& path, unsigned long code, bool isWiped = false)
    {
        if (code == ERROR_SUCCESS)
            gone.insert(path);
        else if (isWiped && code != ERROR_CANCELLED && (kind(path) == 'f' || kind(path) == '-'))
            waiting.insert(path);
    }
    void violation(const std::string& what)
    {
        std::printf("violation: --seed %u --round %u: %s \"%s\" (in /%s), trouble %c%s: %s\n", seed, number,
                    operation, utf8(text.substr(0, 600)).c_str(), home.c_str(), static_cast<char>(trouble),
                    linked ? " came" : "", what.c_str());
        clean = false;
    }

    /// Compares the world with what was allowed and restores it. Returns whether the round was clean.
    bool judge()
    {
        endTrouble();
        const Picture now = world.look();
        for (const auto& [path, thing] : difference(world.original, now)) {
            destroyed = destroyed || named.contains(path);
            if (!named.contains(path))
                violation(path + (now.contains(path) ? " is changed" : " is gone"));
        }
        for (const auto& [path, thing] : now) {
            if (kind(path) == '-' && !mayAppear.contains(path))
                violation(path + " has appeared");
            if (gone.contains(path))
                violation(path + " is there, though said to be gone");
        }
        for (const auto& [path, bytes] : contents)
            if (!now.contains(path) || now.at(path).content != bytes)
                violation(path + " has not the content that was written");
        judgeBootList();
        world.restore(now);
        return clean;
    }

    Choices choices;
    const char* operation = "";
    std::wstring text;
    Trouble trouble = Trouble::none;
    TestEvent cancel;
    bool destroyed = false; ///< something that was named
    std::set<std::string> mayAppear;
    std::set<std::string> gone;                  ///< reported by the operation
    std::map<std::string, std::string> contents; ///< these as well

private:
    /// Exchanges root/sub and aside/sub. Returns false without doing so where Windows would not let anybody
    /// move the folder: it is open without sharing deletion, or anything in it is open. The kernel does not
    /// check that. Handles that only request attributes hold nothing, there as here.
    bool exchange()
    {
        const Picture now = world.look();
        for (const std::string top : {"root/sub", "aside/sub"})
            for (const std::string& path : within(top, now)) {
                const HANDLE probe = ::CreateFileW(
                    literalPath(path).c_str(), DELETE, path == top ? 7 : 0, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
                if (probe == INVALID_HANDLE_VALUE && GetLastError() == ERROR_SHARING_VIOLATION)
                    return false;
                CloseHandle(probe);
            }
        constexpr long long kRename = 82;
        const char* names[] = {"aside/other", "root/sub", "aside/sub", "aside/other"};
        for (const int step : {0, 1, 2})
            unixCall(kRename, world.unixPath(names[step + 1]).c_str(), world.unixPath(names[step]).c_str());
        return true;
    }
    void endTrouble()
    {
        failing.reset();
        SetCurrentDirectoryW(world.windowsPath("").c_str());
        if (!linked)
            return;
        gone.erase("root/sub"); // if the folder was named, only the link comes back
        if (named.contains("root/sub"))
            named.insert("aside/sub");
        if (!exchange())
            violation("root/sub is still held open");
    }
    void judgeBootList()
    {
        std::wistringstream list(takeBootList());
        std::wstring line;
        if (std::getline(list, line) && line != std::wstring(L"\0\0\r", 3))
            violation("the boot list has no header");
        while (std::getline(list, line))
            if (std::none_of(waiting.begin(), waiting.end(), [&](const std::string& path) {
                    return line.starts_with(L"*FileShred*\t*\\??\\" + world.windowsPath(path) + L"*\t*");
                }))
                violation("on the boot list: " + utf8(line));
    }

    World& world;
    unsigned seed;
    unsigned number;
    std::string home;
    unsigned momentsLeft = 0;
    bool linked = false; ///< the link was put there
    bool clean = true;
    std::unique_ptr<FailingCall> failing;
    std::set<std::string> named, waiting;
};
