#pragma once

#include "engine/NativeApi.h"

/// Removes this program from the command lines that the system runs when it starts. A malformed list is left
/// unchanged.
native::Status removeOwnEntry(const native::Api& api);
