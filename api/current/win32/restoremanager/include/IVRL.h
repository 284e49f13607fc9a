#pragma once

#include <cstdint>

/// What IVRL::restoreSnapshot restores.
enum SnapshotMode : std::uint32_t
{
    kSnapshotCurrent = 0,  ///< the current snapshot
    kSnapshotBaseline = 1, ///< the baseline
    kSnapshotTime = 2,     ///< the snapshot taken at a time
    kSnapshotNamed = 3     ///< the snapshot with a name; its time is looked up in the snapshot list
};

/// STATUS_UNSUCCESSFUL
inline constexpr long kSnapshotFailed = static_cast<long>(0xC0000001);
/// STATUS_NO_MEMORY
inline constexpr long kSnapshotNoMemory = static_cast<long>(0xC0000017);

/// Runs the external snapshot tool "vrlcmd", which takes and restores snapshots of the whole system.
///
/// Each call builds the tool's command line, starts the tool and waits until it has ended, however long that
/// takes. Nothing cancels the wait. The result is unknown: the tool's exit code is not examined. The tool
/// runs with the caller's rights, environment, current folder and inheritable handles. While it runs, other
/// programs of the user can read its command line, including the password; the copy in this process is
/// overwritten afterwards. Several threads may use one object at once.
///
/// `tool` is the path of the program. Batch files (.bat, .cmd) are refused, because their interpreter would
/// read the values as commands. So is a path without \\?\ in which a name ends in a dot or a blank, or is a
/// device's, because the system would start another program. No value may turn into another argument of the
/// tool, so the following are refused:
/// - between quotes (all values of createSnapshot, and times): a text that contains a quote, a line end or
///   a zero, or ends in a backslash, which would escape the closing quote;
/// - without quotes (user and password of restoreSnapshot): a text that is empty, or contains a quote, a
///   blank or a character below it;
/// - a command line of more than 32,766 characters, the most that the system accepts.
///
/// A refused call starts nothing. All functions return an NT status: 0 once the tool has ended;
/// kSnapshotFailed for a required value that is null or empty, a refused value or an unknown mode, when the
/// tool cannot be started (then "CreateProcess failed (%d).\n" with the Win32 code is printed on the standard
/// output) or waited for, and when the snapshot list yields no time; kSnapshotNoMemory when memory runs out.
struct IVRL
{
    virtual ~IVRL() = default;

    /// Takes a snapshot: vrlcmd /n /name "NAME" /comment "COMMENT" /user "USER" /pass "PASSWORD". Of the last
    /// three, null values are omitted.
    virtual long createSnapshot(const wchar_t* tool, const wchar_t* name, const wchar_t* comment,
                                const wchar_t* user, const wchar_t* password) = 0;

    /// Restores a snapshot: "vrlcmd /r /current ", "vrlcmd /r /baseline " or vrlcmd /r /time "TIME", followed
    /// by " /user USER" and " /pass PASSWORD", each unless null.
    ///
    /// kSnapshotNamed takes the time from the snapshot list, the file "snapshot.qmx" in the current folder.
    /// It is UTF-16LE text, with or without a byte-order mark. Each line is one record: the name, a tab, the
    /// time text of at most 64 characters, and the line end, LF or CR and LF. The whole name is compared,
    /// with its case. A line without a tab is ignored, and so is one without a line end, which is still being
    /// written. A list with several times for the name yields none. The list must not be open elsewhere.
    ///
    /// @param mode  SnapshotMode
    /// @param name  only for kSnapshotNamed
    /// @param time  only for kSnapshotTime
    virtual long restoreSnapshot(std::uint32_t mode, const wchar_t* tool, const wchar_t* user,
                                 const wchar_t* password, const wchar_t* name, const wchar_t* time) = 0;
};
