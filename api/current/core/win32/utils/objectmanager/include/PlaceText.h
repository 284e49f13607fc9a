#pragma once

/// Builds the place text that every raised Exception carries: three lines, put together at compile time.
///
///     throw Exception(PLACE("win32\\communication\\include\\Message.h", "MessageW::load", 258), code);
///
/// `header` is the path of the header that declares the raiser, from the api\current folder on; `function`
/// its qualified name; `line` a number. Where callers or log readers rely on the line it is given as a
/// number, everywhere else it is __LINE__.
#define PLACE(header, function, line) PLACE_JOINED(header, function, line)
#define PLACE_JOINED(header, function, line) \
    "File: api\\current\\" header "\nFunction: " function "\nLine: " #line
