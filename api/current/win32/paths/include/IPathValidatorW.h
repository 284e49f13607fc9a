#pragma once

/// The folder-macro expander: replaces "%name%" in a path by the folder or text that it stands for.
///
/// Known without regard to case, in any number and at any place of the path: %windir%, %system%,
/// %programfiles%, %programdata%, %appdata%, %localappdata%, %userprofile%, %desktop%, %documents% (the
/// folders of those names), %temp% (the temporary folder of the process, by its long names, as the variable
/// TMP or else TEMP names it), %user_temp% (the
/// user's own temporary folder below %localappdata%), %username%, %current% (the folder of the running
/// application); after those any environment variable. Folders come without a closing backslash, except for
/// the root of a drive, volume or share ("C:" would be the drive's current folder); a separator that follows
/// such a value is left out, so "%temp%\x" is right with any value. A name that is none of these stays as it
/// stands. In a process of the system's account, a service say, the folders of a user, %temp% too, are the
/// current user's: who that is SetCurrentUserSession says (core/win32/registry/api.h); its codes are raised
/// when there is none. A thread that impersonates somebody means him.
///
/// Values are asked of the system at each call, with the identity of the calling thread; one object serves
/// the whole process and any number of threads.
struct IPathValidatorW
{
    /// Expands `path` in place.
    ///
    /// @param path      the path, terminated; receives the expanded path when it fits
    /// @param capacity  size of the buffer `path` in characters, terminator included; 0 only asks
    /// @param needed    receives the length of the expanded path in characters without terminator; may be
    /// null
    /// @return 0; 87 (null path); 1168 (it holds no known macro; nothing is written); 234 (it holds one, and
    ///         the expanded path does not fit `capacity`; the path is left as it is); 8; or the system's code
    ///         for a folder that cannot be had: 203 for %temp% when neither variable is set, 161 when it is
    ///         no absolute path; the system's own choice, the user's profile or the Windows folder, is not
    ///         taken
    virtual long validate(wchar_t* path, unsigned long capacity, unsigned long* needed) = 0;

protected:
    ~IPathValidatorW() = default; // process-wide: callers never delete it
};
