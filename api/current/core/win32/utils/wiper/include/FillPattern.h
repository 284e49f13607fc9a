#pragma once

#include "core/win32/utils/wiper/include/FillPasses.h"

/// The bytes that the wiper overwrites with.
namespace fillpattern {
/// Fills `text` with `length` random characters of "0-9A-Za-z" and a terminating zero.
void fillRandomText(wchar_t* text, std::size_t length) noexcept;
} // namespace fillpattern
