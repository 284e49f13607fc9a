#pragma once

#include "Command.h"

#include "win32/scanengine/include/IScanValidator.h"

/// The validator that --filter and --ignore describe; without rules when neither is given. Throws UsageError
/// that names the first wrong entry and what is wrong with it, also for a text without any entry: it would
/// mean everything. Warns of entries that hardly mean what they say.
SharedPtr<IScanValidator> makeValidator(const Arguments& arguments);
