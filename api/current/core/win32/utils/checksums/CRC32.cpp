#include "core/win32/utils/checksums/include/CRC32.h"

#include <array>
#include <cstring>

#include <immintrin.h>

#include "core/win32/utils/checksums/include/Processor.h"

#define CLMUL_INSTRUCTIONS "pclmul,sse4.1"
#define WIDE_CLMUL_INSTRUCTIONS "vpclmulqdq,avx2,pclmul,sse4.1"

namespace {
constexpr std::uint32_t kPolynomial = 0xEDB88320;
constexpr std::size_t kTables = 8;

/// Table 0 is for a single byte, table n for a byte followed by n others.
constexpr auto kTable = [] {
    std::array<std::array<std::uint32_t, 256>, kTables> tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit)
            value = (value >> 1U) ^ ((value & 1U) != 0 ? kPolynomial : 0U);
        tables[0][byte] = value;
    }
    for (std::size_t i = 1; i < kTables; ++i)
        for (std::size_t byte = 0; byte < 256; ++byte)
            tables[i][byte] = (tables[i - 1][byte] >> 8U) ^ tables[0][tables[i - 1][byte] & 0xFFU];
    return tables;
}();

SYSMAINT_INSTRUCTIONS_INLINE(CLMUL_INSTRUCTIONS)
__m128i load(const unsigned char* bytes) noexcept
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

/// Moves `value` on by the distance that `factors` stand for, and adds the bytes there.
SYSMAINT_INSTRUCTIONS_INLINE(CLMUL_INSTRUCTIONS)
__m128i fold(__m128i value, __m128i factors, __m128i bytes) noexcept
{
    return _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(value, factors, 0x00), bytes),
                         _mm_clmulepi64_si128(value, factors, 0x11));
}

/// The same for two 128-bit values side by side.
SYSMAINT_INSTRUCTIONS_INLINE(WIDE_CLMUL_INSTRUCTIONS)
__m256i foldBoth(__m256i value, __m256i factors, const unsigned char* bytes) noexcept
{
    const __m256i next = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
    return _mm256_xor_si256(_mm256_xor_si256(_mm256_clmulepi64_epi128(value, factors, 0x00), next),
                            _mm256_clmulepi64_epi128(value, factors, 0x11));
}

/// Reduces 128 bits to the 32 of the register.
SYSMAINT_INSTRUCTIONS_INLINE(CLMUL_INSTRUCTIONS)
std::uint32_t reduce(__m128i value, __m128i factors) noexcept
{
    const __m128i low = _mm_setr_epi32(~0, 0, ~0, 0);
    const __m128i last = _mm_set_epi64x(0, 0x163cd6124);
    const __m128i barrett = _mm_set_epi64x(0x1f7011641, 0x1db710641);
    value = _mm_xor_si128(_mm_srli_si128(value, 8), _mm_clmulepi64_si128(value, factors, 0x10));
    value =
        _mm_xor_si128(_mm_srli_si128(value, 4), _mm_clmulepi64_si128(_mm_and_si128(value, low), last, 0x00));
    __m128i quotient = _mm_clmulepi64_si128(_mm_and_si128(value, low), barrett, 0x10);
    quotient = _mm_clmulepi64_si128(_mm_and_si128(quotient, low), barrett, 0x00);
    return static_cast<std::uint32_t>(_mm_extract_epi32(_mm_xor_si128(value, quotient), 1));
}

/// The factors for a distance of 16 bytes.
SYSMAINT_INSTRUCTIONS_INLINE(CLMUL_INSTRUCTIONS)
__m128i byOne() noexcept
{
    return _mm_set_epi64x(0x0ccaa009e, 0x1751997d0);
}

/// Adds the bytes that follow those in `value`, and reduces all to the register.
SYSMAINT_INSTRUCTIONS_INLINE(CLMUL_INSTRUCTIONS)
std::uint32_t finished(__m128i value, const unsigned char* bytes, std::size_t size) noexcept
{
    for (; size >= 16; bytes += 16, size -= 16)
        value = fold(value, byOne(), load(bytes));
    return crc::takePortably(reduce(value, byOne()), bytes, size);
}
} // namespace

crc::Take& crc::fastestTake() noexcept
{
    const processor::Features& found = processor::features();
    return found.wideClmul ? takeWithWideExtensions : found.clmul ? takeWithExtensions : takePortably;
}

std::uint32_t crc::takePortably(std::uint32_t value, const unsigned char* bytes, std::size_t size) noexcept
{
    for (; size >= kTables; size -= kTables, bytes += kTables) {
        std::uint64_t eight;
        std::memcpy(&eight, bytes, sizeof eight);
        eight ^= value;
        value = 0;
        for (std::size_t i = 0; i < kTables; ++i)
            value ^= kTable[kTables - 1 - i][(eight >> (8 * i)) & 0xFFU];
    }
    for (; size != 0; --size, ++bytes)
        value = (value >> 8U) ^ kTable[0][(value ^ *bytes) & 0xFFU];
    return value;
}

SYSMAINT_INSTRUCTIONS(CLMUL_INSTRUCTIONS)
std::uint32_t crc::takeWithExtensions(std::uint32_t value, const unsigned char* bytes,
                                      std::size_t size) noexcept
{
    constexpr std::size_t kStep = 64;
    if (size < kStep)
        return takePortably(value, bytes, size);
    const __m128i byFour = _mm_set_epi64x(0x1c6e41596, 0x154442bd4);
    __m128i lanes[4] = {_mm_xor_si128(load(bytes), _mm_cvtsi32_si128(static_cast<int>(value))),
                        load(bytes + 16), load(bytes + 32), load(bytes + 48)};
    for (bytes += kStep, size -= kStep; size >= kStep; bytes += kStep, size -= kStep)
        for (std::size_t i = 0; i < 4; ++i)
            lanes[i] = fold(lanes[i], byFour, load(bytes + 16 * i));
    __m128i one = lanes[0];
    for (int i = 1; i < 4; ++i)
        one = fold(one, byOne(), lanes[i]);
    return finished(one, bytes, size);
}

SYSMAINT_INSTRUCTIONS(WIDE_CLMUL_INSTRUCTIONS)
std::uint32_t crc::takeWithWideExtensions(std::uint32_t value, const unsigned char* bytes,
                                          std::size_t size) noexcept
{
    constexpr std::size_t kStep = 128;
    constexpr std::size_t kLane = 32;
    if (size < 2 * kStep)
        return takeWithExtensions(value, bytes, size);
    const __m256i byFour = _mm256_broadcastsi128_si256(_mm_set_epi64x(0x14a7fe880, 0x1e88ef372));
    const __m256i start = _mm256_zextsi128_si256(_mm_cvtsi32_si128(static_cast<int>(value)));
    const auto* first = reinterpret_cast<const __m256i*>(bytes);
    __m256i lanes[4] = {_mm256_xor_si256(_mm256_loadu_si256(first), start), _mm256_loadu_si256(first + 1),
                        _mm256_loadu_si256(first + 2), _mm256_loadu_si256(first + 3)};
    for (bytes += kStep, size -= kStep; size >= kStep; bytes += kStep, size -= kStep)
        for (std::size_t i = 0; i < 4; ++i)
            lanes[i] = foldBoth(lanes[i], byFour, bytes + kLane * i);
    __m128i one = _mm256_castsi256_si128(lanes[0]);
    for (int i = 0; i < 4; ++i) {
        if (i != 0)
            one = fold(one, byOne(), _mm256_castsi256_si128(lanes[i]));
        one = fold(one, byOne(), _mm256_extracti128_si256(lanes[i], 1));
    }
    return finished(one, bytes, size);
}
