#pragma once

#include <string>
#include <vector>

/// `util checksum`: prints or checks lists in the format of sha256sum. Returns an ExitCode; throws
/// UsageError.
int checksumCommand(const std::vector<std::wstring>& words);
