#pragma once

#include <memory>
#include <vector>

#include "safety/PathForms.h"
#include "safety/World.h"
#include "support/Scan.h"

/// What comes between in a round: at most one thing, at a chosen one of the moments that the operation
/// passes.
enum class Trouble
{
    none,
    otherFolder, ///< the current folder is another one
    link,        ///< root/sub is a link to vault/sub
    cancel,
    failingCall ///< a system call of the library fails, from the beginning on
};

/// One operation over the world with what it may touch, and the judge of what came of it.
///
/// The rule: an operation destroys the things that the caller named and nothing else. What a path names is
/// settled when it is given, name by name; a link is a thing of its own; what lies behind one was not named.
/// What was reported as done has been done. To refuse and change nothing is always right.
class Round
{
public:
    Round(World& world, unsigned seed, unsigned number);
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;
    ~Round();

    /// A path in some form, which everything said about the round tells from now on.
    const std::wstring& write(const std::string& path, bool folder);
    /// A moment at which the trouble may come.
    void moment();
    void plan(std::initializer_list<Trouble> possible);

    /// The thing and, of a container, what is in it; nothing that is behind a link.
    [[nodiscard]] std::vector<std::string> within(const std::string& path) const;
    [[nodiscard]] char kind(const std::string& path) const;
    /// A random thing of the kinds (of World's letters, '-' for a name that nothing has) below `top`.
    std::string target(const std::string& top, const std::string& kinds);
    /// The caller names a thing to be destroyed; with its data when that is overwritten.
    void name(const std::string& path, bool data = false);
    /// The operation says that the thing is gone, or below that it is a file with that content.
    void claimGone(const std::string& path) { m_gone.insert(path); }
    /// A file, or what is not there, was wiped with that code: in vain, it may go on the list for the
    /// restart.
    void waits(const std::string& path, long code);
    void claimContent(const std::string& path, const std::string& bytes);
    void violation(const std::string& what);
    /// Opens a file so that nobody else can; null when that fails.
    [[nodiscard]] HANDLE lock(const std::string& path) const;
    /// Compares the world with what was allowed and makes it original again. Returns whether the round was
    /// clean.
    bool judge();

    [[nodiscard]] HANDLE cancelEvent() const { return m_cancel; }
    [[nodiscard]] bool destroyed() const { return m_destroyed; }

    Choices choices;
    std::string operation;
    PathForm form;
    Trouble trouble = Trouble::none;
    std::set<std::string> mayAppear;

private:
    void endTrouble();
    void judgeBootList();

    World& m_world;
    unsigned m_seed;
    unsigned m_number;
    std::string m_home;
    unsigned m_momentsLeft = 0;
    bool m_came = false;
    bool m_clean = true;
    bool m_destroyed = false;
    HANDLE m_cancel;
    std::shared_ptr<void> m_failing;
    std::set<std::string> m_named;
    std::set<std::string> m_gone;
    std::set<std::string> m_waiting;
    std::map<std::string, std::string> m_contents;
};

using Operation = void (*)(Round&);
void deleteFileItem(Round& round);
void deleteFolderItem(Round& round);
void createItem(Round& round);
void scanAndDelete(Round& round);
void wipeFile(Round& round);
void wipeStack(Round& round);
void changeRegistryItem(Round& round);
void scanRegistryAndDelete(Round& round);
void runHost(Round& round);
