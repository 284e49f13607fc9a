#pragma once

// What headers need that C takes as well: they declare functions of plain types with C linkage, and include
// neither the system's headers nor the standard library of C++.

#include <stddef.h>
#include <stdint.h>

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

// Enclose declarations with C linkage.
#if defined(__cplusplus)
#define SYSMAINT_C_BEGIN extern "C" {
#define SYSMAINT_C_END }
#else
#define SYSMAINT_C_BEGIN
#define SYSMAINT_C_END
#endif

// The type of an enumeration's constants, which only C++ can state, from C++11 on: `enum Name
// SYSMAINT_UNSIGNED_LONG`. One compiler tells its version in a macro of its own.
#if defined(__cplusplus) && (__cplusplus >= 201103L || defined(_MSVC_LANG))
#define SYSMAINT_UNSIGNED_LONG : unsigned long
#else
#define SYSMAINT_UNSIGNED_LONG
#endif
