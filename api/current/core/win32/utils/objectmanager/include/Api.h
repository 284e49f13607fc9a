#pragma once

#include <cstddef> // shows which standard library is used

#include "core/win32/utils/objectmanager/include/Export.h"

// Objects of the standard library cross the boundary, so both sides need the same library with the same
// layout. A client built with another would link and then crash.
#if defined(__MINGW32__)
#if !defined(_WIN64)
#error "sysmaint is a 64-bit library"
#elif !defined(__GLIBCXX__)
#error "sysmaint is built with libstdc++: its clients cannot use another standard library"
#elif defined(_GLIBCXX_DEBUG) || !_GLIBCXX_USE_CXX11_ABI
#error \
    "sysmaint is built without _GLIBCXX_DEBUG and with the C++11 strings of libstdc++, as its clients must be"
#endif
#endif
