#pragma once

#include <windows.h>

#include <string>
#include <vector>

/// What the user must do so that the list is processed.
constexpr const wchar_t* kRestartAdvice = L"The list is gone through at \"Restart\". After \"Shut down\" a "
                                          L"machine with Fast Startup does not do it.";

/// A line of the list.
struct WaitingLine
{
    std::wstring text; // without its end
    std::wstring file; // the file it names: absolute, without a prefix; empty when it names none
};

/// The files that wait for the restart: those in "ForceDelete.txt" in the Windows folder.
struct ForceDeleteList
{
    long code = ERROR_SUCCESS;      // why the list cannot be read; a missing list names no files
    std::vector<WaitingLine> lines; // all of them, numbered from 1
    std::size_t wrongLines = 0;     // lines that name no file
};

/// Whether the Windows folder of this session is a private one, as on Remote Desktop hosts: a list there is
/// never read when the system starts.
bool isWindowsFolderPrivate();

/// Reads the list. It is open only for a moment, because nobody can append to it meanwhile.
ForceDeleteList readForceDeleteList();

/// An untrusted text for the console: control characters and other invisible ones become visible.
std::wstring visibleText(const std::wstring& text);
