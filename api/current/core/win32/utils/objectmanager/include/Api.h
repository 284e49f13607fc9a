#pragma once

// How the functions of the DLL are declared: exported while it is built, imported by everyone else.
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
