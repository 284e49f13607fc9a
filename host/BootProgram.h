#pragma once

#include <string>

#include "ForceDeleteList.h"

// The program that wipes the waiting files at the next start, and the same work done now.

/// Whether it is in the system folder and registered.
struct BootProgramState
{
    std::wstring path;         // where it is, or would be
    bool isThere = false;      // as a file
    bool isRegistered = false; // among the command lines that the system runs when it starts
};
BootProgramState bootProgramState();

/// Copies the program, which is beside this one, to the system folder, and registers it. An existing copy is
/// replaced. Returns 0 or the system's code; on failure it is not registered, unless it was before.
long installBootProgram();
/// Removes it from the command lines, then deletes it. Succeeds when it is missing.
long uninstallBootProgram();

/// Shows the log of the program's runs. Returns 0, also without a log, or the code.
long showBootLog();

/// Does the program's work now for the lines that were shown, as far as their files can be opened, and shows
/// what it does. Lines added since wait for the next run. Returns an ExitCode.
int runBootProgram(const ForceDeleteList& shown);

/// Removes one line from the list, if it still has this number, counted from 1, and this text. Returns 0;
/// 1168 when it does not; 32 when somebody is processing the list; or the system's code.
long dropBootLine(std::size_t number, const std::wstring& text);
