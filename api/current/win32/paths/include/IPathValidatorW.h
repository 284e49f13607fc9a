#pragma once

/// The folder-macro expander: replaces each "%name%" in a path by the folder or text that it stands for.
///
/// Macros are recognised without regard to case, in any number and anywhere in the path: %windir%, %system%,
/// %programfiles%, %programdata%, %appdata%, %localappdata%, %userprofile%, %desktop%, %documents% (the
/// folders of those names), %temp% (the temporary folder of the process with its long names, as given by the
/// variable TMP or else TEMP), %user_temp% (the user's own temporary folder below %localappdata%),
/// %username%, %current% (the folder of the running application); then any environment variable. Folders have
/// no closing backslash, except the root of a drive, volume or share ("C:" would be the drive's current
/// folder). A separator after such a root is dropped, so "%temp%\x" is right with any value. Unknown names
/// stay as they are. In a process of the system's account, such as a service, a user's folders, including
/// %temp%, are those of the current user, whom SetCurrentUserSession determines (core/win32/registry/api.h);
/// its codes are raised when there is none. For a thread that impersonates a user, they are that user's.
///
/// Each call queries the values from the system with the identity of the calling thread. One object serves
/// the whole process and any number of threads.
struct IPathValidatorW
{
    /// Expands `path` in place.
    ///
    /// @param path      the path, terminated; receives the expanded path when it fits
    /// @param capacity  size of the buffer `path` in characters, terminator included; 0 only queries
    /// @param needed    receives the length of the expanded path in characters without terminator; may be
    ///                  null
    /// @return 0; 87 (null path); 1168 (it holds no known macro; nothing is written); 234 (it holds one, but
    ///         the expanded path does not fit `capacity`; the path stays unchanged); 8; or the system's code
    ///         for a folder that cannot be determined: for %temp% 203 when neither variable is set, 161 when
    ///         the value is not an absolute path; the system's fallbacks, the user's profile or the Windows
    ///         folder, are not used
    virtual long validate(wchar_t* path, unsigned long capacity, unsigned long* needed) = 0;

protected:
    ~IPathValidatorW() = default; // process-wide: never deleted by callers
};
