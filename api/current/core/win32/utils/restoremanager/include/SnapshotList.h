#pragma once

#include <string>
#include <string_view>

/// The time of a named snapshot in the snapshot list, "snapshot.qmx" in the current folder. IVRL describes
/// the list's format. Raises the bare code: the system's for a list that cannot be opened or read, 1168 for a
/// name that is not in it, 13 for a time that is empty or too long, 183 for a name with several times.
[[nodiscard]] std::wstring findSnapshotTime(std::wstring_view name);
