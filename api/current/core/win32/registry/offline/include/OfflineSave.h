#pragma once

namespace offline {
/// Opens a registry hive that nobody has loaded and saves it into a new file, compactly: through the system's
/// offreg.dll where it is there (it is loaded from the system folder only), and through our own engine
/// otherwise. `destinationFile` is overwritten; it is complete and flushed when this returns, and is deleted
/// when it fails. The source is only read, and shared with readers.
///
/// Raises a bare code: 8; the system's of a file that cannot be opened, read or written; 1009 (no hive) or
/// 1015 (a damaged one); of offreg.dll also its own, such as 1017.
void saveCompact(const wchar_t* sourceFile, const wchar_t* destinationFile);
} // namespace offline
