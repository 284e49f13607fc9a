#pragma once

#include "WipeTarget.h"

/// Throws UsageError when a target is in the Windows folder, or is or contains that folder, one of the
/// folders of programs and their data, that of the users' profiles, or one of these. A folder is identified
/// by its volume and file index, under any name (a substituted drive, a share, a link, a short name), and
/// also by the system's path for it. A link itself may be deleted, whatever its target.
void requireUnprotected(const WipeTarget& target);

/// The same for the root of a drive ("D:\") whose whole content is to be deleted, also for a drive that only
/// stands for a folder.
void requireUnprotectedDrive(const std::wstring& root);
