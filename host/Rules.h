#pragma once

#include "Command.h"

#include "win32/scanengine/include/IScanValidator.h"

/// The validator that --filter and --ignore describe; without rules when neither is given. Throws UsageError
/// with the first wrong entry and the reason, also for a text without any entry, which would mean everything.
/// Warns of entries that are probably not meant as written.
SharedPtr<IScanValidator> makeValidator(const Arguments& arguments);
