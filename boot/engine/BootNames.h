#pragma once

#include "engine/Text.h"

/// The names by which the boot-time program, its files and its host know each other. All files are in the
/// Windows folder.
namespace bootnames {
inline constexpr Text kList = L"ForceDelete.txt";
/// The list that comes next, as long as it is being written, and the one that it replaces, until it is gone.
inline constexpr Text kNewList = L"sysmaint-boot.new";
inline constexpr Text kOldList = L"sysmaint-boot.old";
/// What the runs did: UTF-16 with a byte-order mark. Whoever works on the list holds it open for writing.
inline constexpr Text kLog = L"sysmaint-boot.log";
/// What a list begins with, what each of its lines begins with, and what a line becomes that is done with.
inline constexpr wchar_t kHeaderCharacters[] = {L'\0', L'\0', L'\r', L'\n'};
inline constexpr Text kHeader = {kHeaderCharacters, 4};
inline constexpr Text kLineBegin = L"*FileShred*\t*\\??\\";
inline constexpr wchar_t kDone = L'-';
/// The command line that the system runs, and the program in the system's folder that it names.
inline constexpr wchar_t kEntry[] = L"sysmaint-boot";
inline constexpr wchar_t kProgram[] = L"sysmaint-boot.exe";
} // namespace bootnames
