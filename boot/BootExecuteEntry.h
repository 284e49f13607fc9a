#pragma once

#include "engine/NativeApi.h"

/// Takes this program off the command lines that the system runs at its start. Whatever is not a well-formed
/// list of them is left as it is.
native::Status removeOwnEntry(const native::Api& api);
