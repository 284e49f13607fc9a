#pragma once

#include <windows.h>

#include <string>
#include <vector>

/// What to do so that the list is gone through.
constexpr const wchar_t* kRestartAdvice = L"The list is gone through at \"Restart\". After \"Shut down\" a "
                                          L"machine with Fast Startup does not do it.";

/// A line of the list.
struct WaitingLine
{
    std::wstring text; // without its end
    std::wstring file; // that it names: absolute, without a prefix; empty when it names none
};

/// What waits for the restart: the files that "ForceDelete.txt" in the Windows folder names.
struct ForceDeleteList
{
    long code = ERROR_SUCCESS;      // of a list that cannot be read; one that is not there names no files
    std::vector<WaitingLine> lines; // all of them, from number 1 on
    std::size_t wrongLines = 0;     // that name no file
};

/// Whether the Windows folder of this session is a private one, as on Remote Desktop hosts: no start of the
/// system reads a list there.
bool isWindowsFolderPrivate();

/// Reads the list. It is open only for a moment: as long as it is, nobody can add to it.
ForceDeleteList readForceDeleteList();

/// A text that somebody else chose, for the console: control characters and others that do not show become
/// visible.
std::wstring visibleText(const std::wstring& text);
