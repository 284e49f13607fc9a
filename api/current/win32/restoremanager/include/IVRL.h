#pragma once

#include <cstdint>

/// What IVRL::restoreSnapshot goes back to.
enum SnapshotMode : std::uint32_t
{
    kSnapshotCurrent = 0,  ///< the current snapshot
    kSnapshotBaseline = 1, ///< the baseline
    kSnapshotTime = 2,     ///< the snapshot of a time
    kSnapshotNamed = 3     ///< the snapshot of a name, whose time is looked up in the snapshot list
};

/// STATUS_UNSUCCESSFUL
inline constexpr long kSnapshotFailed = static_cast<long>(0xC0000001);
/// STATUS_NO_MEMORY
inline constexpr long kSnapshotNoMemory = static_cast<long>(0xC0000017);

/// Runs the external snapshot tool "vrlcmd", which takes and restores snapshots of the whole system.
///
/// Each call builds the tool's command line, starts the tool and waits until it has ended, however long that
/// takes; nothing cancels it. What comes out is not known here: the tool's own exit code is not looked at.
/// The tool is run with the caller's rights, environment, current folder and inheritable handles. While it
/// runs its command line, with the password, can be read by other programs of the user; the copy in this
/// process is overwritten afterwards. An object may be used by several threads at once.
///
/// `tool` is the path of the program; a batch file (.bat, .cmd) is refused, because its interpreter would
/// read the values as commands. No value becomes another argument of the tool, so refused are
/// - between quotes (all values of createSnapshot, and times): a text that holds a quote, a line end or a
///   zero, or ends in a backslash, which would take the closing quote's meaning away;
/// - without quotes (user and password of restoreSnapshot): a text that is empty, or holds a quote, a blank
///   or a character below it;
/// - a command line of more than 32,766 characters in all, the most that the system takes.
/// A refused call starts nothing. All functions return an NT status: 0 once the tool has ended;
/// kSnapshotFailed for a required value that is null or empty, a refused value or an unknown mode, when the
/// tool cannot be started (then "CreateProcess failed (%d).\n" with the Win32 code is printed on the standard
/// output) or not be waited for, and when the snapshot list does not give a time; kSnapshotNoMemory when
/// memory is short.
struct IVRL
{
    virtual ~IVRL() = default;

    /// Takes a snapshot: vrlcmd /n /name "NAME" /comment "COMMENT" /user "USER" /pass "PASSWORD". What is
    /// null of the last three is left out.
    virtual long createSnapshot(const wchar_t* tool, const wchar_t* name, const wchar_t* comment,
                                const wchar_t* user, const wchar_t* password) = 0;

    /// Goes back to a snapshot: "vrlcmd /r /current ", "vrlcmd /r /baseline " or vrlcmd /r /time "TIME", and
    /// then " /user USER" and " /pass PASSWORD", each unless it is null.
    ///
    /// kSnapshotNamed takes the time from the snapshot list, the file "snapshot.qmx" in the current folder.
    /// It is UTF-16LE text, with or without a byte-order mark. Each line is one record: the name, a tab, the
    /// time text of at most 64 characters, and the line's end, LF or CR and LF. A name is compared whole and
    /// with its case. A line without a tab is no record, and so is one without its end, which is still being
    /// written. A list that gives several times to the name gives none. The list must not be open elsewhere.
    ///
    /// @param mode  SnapshotMode
    /// @param name  for kSnapshotNamed alone
    /// @param time  for kSnapshotTime alone
    virtual long restoreSnapshot(std::uint32_t mode, const wchar_t* tool, const wchar_t* user,
                                 const wchar_t* password, const wchar_t* name, const wchar_t* time) = 0;
};
