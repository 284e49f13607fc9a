#pragma once

#include "engine/Text.h"

/// The names that the boot-time program and its host share. All files are in the Windows folder.
namespace bootnames {
inline constexpr Text kList = L"ForceDelete.txt";
/// The next list while it is being written, and the list it replaces until that is deleted.
inline constexpr Text kNewList = L"sysmaint-boot.new";
inline constexpr Text kOldList = L"sysmaint-boot.old";
/// The log of the runs: UTF-16 with a byte-order mark. Whoever processes the list holds it open for writing.
inline constexpr Text kLog = L"sysmaint-boot.log";
/// The beginning of a list, the beginning of each line, and what replaces a finished line.
inline constexpr wchar_t kHeaderCharacters[] = {L'\0', L'\0', L'\r', L'\n'};
inline constexpr Text kHeader = {kHeaderCharacters, 4};
inline constexpr Text kLineBegin = L"*FileShred*\t*\\??\\";
inline constexpr wchar_t kDone = L'-';
/// The command line that the system runs, and the program in the system folder that it names.
inline constexpr wchar_t kEntry[] = L"sysmaint-boot";
inline constexpr wchar_t kProgram[] = L"sysmaint-boot.exe";
} // namespace bootnames
