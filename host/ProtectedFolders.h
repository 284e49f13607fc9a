#pragma once

#include "WipeTarget.h"

/// Throws UsageError when a target is in the Windows folder, or is or holds that folder, one of the folders
/// of programs and their data, or that of the users' profiles. What a folder is, is told by its volume and
/// file index, by whatever name it is reached: a substituted drive, a share, a link, a short name; besides by
/// the path that the system gives for it. A link itself may go wherever it leads.
void requireUnprotected(const WipeTarget& target);

/// The same for the root of a drive ("D:\"), all of which is to go: also for a drive that only stands for a
/// folder.
void requireUnprotectedDrive(const std::wstring& root);
