#pragma once

#include <string>

/// Whether the volume of a drive such as "D:\" holds shadow copies (restore points, "previous versions").
/// False also when the system does not tell, say because the caller is not an administrator. Proven with the
/// system's answer simulated.
bool hasShadowCopies(const std::wstring& drive);
