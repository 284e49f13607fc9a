#pragma once

#include <string>

#include "ForceDeleteList.h"

// The program that wipes at the next start what waits for it, and its work done now.

/// Whether it is in the system's folder and registered.
struct BootProgramState
{
    std::wstring path;         // where it is, or would be
    bool isThere = false;      // as a file
    bool isRegistered = false; // on the command lines that the system runs at its start
};
BootProgramState bootProgramState();

/// Copies the program, which is beside this one, into the system's folder, and registers it. What is there
/// already is renewed. Returns 0 or the system's code; then it is not registered, unless it was before.
long installBootProgram();
/// Takes it off the command lines, then deletes it. What is not there is no failure.
long uninstallBootProgram();

/// Shows what the runs of the program left behind in their log. Returns 0, also without one, or the code.
long showBootLog();

/// Does the work of the program now for the lines that were shown, as far as their files can be opened; shows
/// what it does. Lines that were added since wait for the next run. Returns an ExitCode.
int runBootProgram(const ForceDeleteList& shown);

/// Takes one line off the list, if it still has this number, counted from 1, and this text. Returns 0; 1168
/// when it has not; 32 when somebody works on the list; or the system's code.
long dropBootLine(std::size_t number, const std::wstring& text);
