#pragma once

#include <immintrin.h>
#include <intrin.h>

#if defined(__GNUC__) || defined(__clang__)
// With these compilers a function must name the instructions that it uses.
#define SYSMAINT_INSTRUCTIONS(names) __attribute__((target(names)))
#define SYSMAINT_INSTRUCTIONS_INLINE(names) __attribute__((target(names), always_inline)) inline
#else
#define SYSMAINT_INSTRUCTIONS(names)
#define SYSMAINT_INSTRUCTIONS_INLINE(names) __forceinline
#endif

/// What this processor supports beyond the base of x86-64.
namespace processor {
struct Features
{
    bool sha = false;       ///< the SHA extensions, and SSSE3 and SSE4.1, which their code needs
    bool clmul = false;     ///< carry-less multiplication, and SSE4.1
    bool wideClmul = false; ///< the same for 256 bits, AVX2, and a system that saves their registers
};

/// Whether the system saves the 256-bit registers when it switches threads. Only where XGETBV is enabled.
SYSMAINT_INSTRUCTIONS("xsave")
inline bool keepsWideRegisters() noexcept
{
    constexpr unsigned long long kWide = 0x6; // the 128-bit registers, and their upper halves
    return (_xgetbv(0) & kWide) == kWide;
}

/// Determined once.
inline const Features& features() noexcept
{
    static const Features found = [] {
        constexpr int kClmul = 1 << 1;
        constexpr int kSsse3 = 1 << 9;
        constexpr int kSse41 = 1 << 19;
        constexpr int kSaves = 1 << 27; // the system has enabled XGETBV
        constexpr int kSha = 1 << 29;   // of leaf 7, like the next two
        constexpr int kAvx2 = 1 << 5;
        constexpr int kWideClmul = 1 << 10;
        Features result;
        int leaf[4];
        __cpuid(leaf, 0);
        const int last = leaf[0];
        __cpuid(leaf, 1);
        const bool sse41 = (leaf[2] & kSse41) != 0;
        const bool ssse3 = (leaf[2] & kSsse3) != 0;
        result.clmul = sse41 && (leaf[2] & kClmul) != 0;
        const bool wide = (leaf[2] & kSaves) != 0 && keepsWideRegisters();
        if (last < 7)
            return result;
        __cpuidex(leaf, 7, 0);
        result.sha = sse41 && ssse3 && (leaf[1] & kSha) != 0;
        result.wideClmul = result.clmul && wide && (leaf[1] & kAvx2) != 0 && (leaf[2] & kWideClmul) != 0;
        return result;
    }();
    return found;
}
} // namespace processor
