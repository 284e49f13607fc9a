#include "core/win32/utils/checksums/include/SHA256.h"

#include <bit>
#include <iterator>
#include <utility>

#include <immintrin.h>

#include "core/win32/utils/checksums/include/Processor.h"

#define SHA_INSTRUCTIONS "sha,sse4.1,ssse3"

namespace {
alignas(16) constexpr std::uint32_t kConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

/// One round. The words of the state do not move: each round addresses them by other names.
template <int Round>
void oneRound(sha256::Algorithm::State& state, std::uint32_t (&words)[16]) noexcept
{
    const auto at = [&](int name) -> std::uint32_t& {
        return state[static_cast<std::size_t>(64 - Round + name) % 8];
    };
    std::uint32_t& word = words[Round % 16];
    if constexpr (Round >= 16) {
        const std::uint32_t early = words[(Round + 1) % 16];
        const std::uint32_t late = words[(Round + 14) % 16];
        word += (std::rotr(early, 7) ^ std::rotr(early, 18) ^ (early >> 3U)) + words[(Round + 9) % 16] +
                (std::rotr(late, 17) ^ std::rotr(late, 19) ^ (late >> 10U));
    }
    const std::uint32_t a = at(0);
    const std::uint32_t e = at(4);
    const std::uint32_t sum = at(7) + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                              (at(6) ^ (e & (at(5) ^ at(6)))) + kConstants[Round] + word;
    at(3) += sum;
    at(7) =
        sum + (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & at(1)) | (at(2) & (a | at(1))));
}

template <int... Rounds>
void everyRound(sha256::Algorithm::State& state, std::uint32_t (&words)[16],
                std::integer_sequence<int, Rounds...> /*rounds*/) noexcept
{
    (oneRound<Rounds>(state, words), ...);
}

/// Rounds 4 * Group to 4 * Group + 3. `words` holds the last 16 words of the schedule, four to a vector.
template <int Group>
SYSMAINT_INSTRUCTIONS_INLINE(SHA_INSTRUCTIONS)
void fourRounds(__m128i& abef, __m128i& cdgh, __m128i (&words)[4]) noexcept
{
    __m128i& word = words[Group % 4];
    if constexpr (Group >= 4) {
        const __m128i last = words[(Group + 3) % 4];
        const __m128i between = _mm_alignr_epi8(last, words[(Group + 2) % 4], 4);
        word = _mm_sha256msg2_epu32(
            _mm_add_epi32(_mm_sha256msg1_epu32(word, words[(Group + 1) % 4]), between), last);
    }
    const __m128i sum =
        _mm_add_epi32(word, _mm_load_si128(reinterpret_cast<const __m128i*>(kConstants) + Group));
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, sum);
    abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(sum, 0x0E));
}

template <int... Groups>
SYSMAINT_INSTRUCTIONS_INLINE(SHA_INSTRUCTIONS)
void everyGroup(__m128i& abef, __m128i& cdgh, __m128i (&words)[4],
                std::integer_sequence<int, Groups...> /*groups*/) noexcept
{
    (fourRounds<Groups>(abef, cdgh, words), ...);
}
} // namespace

sha256::TakeBlocks& sha256::fastestTakeBlocks() noexcept
{
    return processor::features().sha ? takeBlocksWithExtensions : takeBlocksPortably;
}

void sha256::takeBlocksPortably(Algorithm::State& state, const unsigned char* blocks,
                                std::size_t count) noexcept
{
    for (; count != 0; --count, blocks += SHA256::kBlockSize) {
        std::uint32_t words[16];
        for (std::size_t i = 0; i < std::size(words); ++i)
            words[i] = loadBigEndian(blocks + i * sizeof words[i]);
        Algorithm::State after = state;
        everyRound(after, words, std::make_integer_sequence<int, 64>());
        for (std::size_t i = 0; i < state.size(); ++i)
            state[i] += after[i];
    }
}

SYSMAINT_INSTRUCTIONS(SHA_INSTRUCTIONS)
void sha256::takeBlocksWithExtensions(Algorithm::State& state, const unsigned char* blocks,
                                      std::size_t count) noexcept
{
    // Reverses the bytes of each word; the instructions need the state in two halves.
    const __m128i turned = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    auto* halves = reinterpret_cast<__m128i*>(state.data());
    const __m128i low = _mm_shuffle_epi32(_mm_loadu_si128(halves), 0xB1);      // c d a b, from the high word
    const __m128i high = _mm_shuffle_epi32(_mm_loadu_si128(halves + 1), 0x1B); // e f g h
    __m128i abef = _mm_alignr_epi8(low, high, 8);
    __m128i cdgh = _mm_blend_epi16(high, low, 0xF0);
    for (; count != 0; --count, blocks += SHA256::kBlockSize) {
        __m128i words[4];
        for (int i = 0; i < 4; ++i)
            words[i] =
                _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks) + i), turned);
        const __m128i oldAbef = abef;
        const __m128i oldCdgh = cdgh;
        everyGroup(abef, cdgh, words, std::make_integer_sequence<int, 16>());
        abef = _mm_add_epi32(abef, oldAbef);
        cdgh = _mm_add_epi32(cdgh, oldCdgh);
    }
    const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
    _mm_storeu_si128(halves, _mm_blend_epi16(feba, dchg, 0xF0));
    _mm_storeu_si128(halves + 1, _mm_alignr_epi8(dchg, feba, 8));
}
