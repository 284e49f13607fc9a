#pragma once

#include <cstddef> // shows which standard library is used

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

// Declares the DLL's functions: exported while the DLL is built, imported everywhere else.
#if defined(_MSC_VER) || defined(__MINGW32__)
#if defined(SYSMAINT_BUILD)
#define SYSMAINT_API __declspec(dllexport)
#elif defined(SYSMAINT_STATIC)
#define SYSMAINT_API
#else
#define SYSMAINT_API __declspec(dllimport)
#endif
#else
#define SYSMAINT_API
#endif
