#pragma once

#include <string>
#include <string_view>

/// The time that the snapshot list, "snapshot.qmx" in the current folder, gives to the snapshot of a name.
/// IVRL says how the list is laid out. Raises the bare code: the system's for a list that cannot be opened or
/// read, 1168 for a name that is not in it, 13 for one whose time is empty or too long, 183 for one that has
/// several times.
[[nodiscard]] std::wstring findSnapshotTime(std::wstring_view name);
