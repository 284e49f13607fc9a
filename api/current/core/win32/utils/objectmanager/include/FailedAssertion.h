#pragma once

#include <cassert>

#if defined(_MSC_VER)
// That header declares it for debug builds only.
extern "C" void __cdecl _wassert(wchar_t const* message, wchar_t const* file, unsigned line);
#endif

/// Reports a programming error through the runtime's assertion routine, in every build. The routine ends the
/// process unless a debugger or the host has replaced it. It may therefore return, and callers then raise
/// their code.
inline void reportFailedAssertion(const wchar_t* expression, const wchar_t* header, unsigned line)
{
    _wassert(expression, header, line);
}
