#include "core/win32/utils/lookup/include/SHA1.h"

#include <bit>
#include <iterator>
#include <utility>

#include <immintrin.h>

#include "core/win32/utils/checksums/include/Processor.h"

#define SHA_INSTRUCTIONS "sha,sse4.1,ssse3"

namespace {
/// One round. `words` holds the last 16 words of the schedule. The five words of the state do not move: each
/// round addresses them by other names.
template <int Round>
void oneRound(sha1::State& state, std::uint32_t (&words)[16]) noexcept
{
    constexpr std::uint32_t kConstants[] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};
    const std::uint32_t a = state[(80 - Round) % 5];
    std::uint32_t& b = state[(81 - Round) % 5];
    const std::uint32_t c = state[(82 - Round) % 5];
    const std::uint32_t d = state[(83 - Round) % 5];
    std::uint32_t& e = state[(84 - Round) % 5];

    std::uint32_t& word = words[Round % 16];
    if constexpr (Round >= 16)
        word =
            std::rotl(words[(Round - 3) % 16] ^ words[(Round - 8) % 16] ^ words[(Round - 14) % 16] ^ word, 1);
    std::uint32_t mixed = b ^ c ^ d;
    if constexpr (Round < 20)
        mixed = d ^ (b & (c ^ d));
    else if constexpr (Round >= 40 && Round < 60)
        mixed = (b & c) | (d & (b | c));
    e += std::rotl(a, 5) + mixed + kConstants[Round / 20] + word;
    b = std::rotl(b, 30);
}

template <int... Rounds>
void everyRound(sha1::State& state, std::uint32_t (&words)[16],
                std::integer_sequence<int, Rounds...> /*rounds*/) noexcept
{
    (oneRound<Rounds>(state, words), ...);
}

/// Rounds 4 * Group to 4 * Group + 3. `words` holds the last 16 words of the schedule, four to a vector;
/// `previous` is the state of four rounds ago, from which the instructions derive the fifth word.
template <int Group>
SYSMAINT_INSTRUCTIONS_INLINE(SHA_INSTRUCTIONS)
void fourRounds(__m128i& state, __m128i& previous, __m128i (&words)[4]) noexcept
{
    __m128i& word = words[Group % 4];
    if constexpr (Group >= 4)
        word = _mm_sha1msg2_epu32(
            _mm_xor_si128(_mm_sha1msg1_epu32(word, words[(Group + 1) % 4]), words[(Group + 2) % 4]),
            words[(Group + 3) % 4]);
    const __m128i fifth = Group == 0 ? _mm_add_epi32(previous, word) : _mm_sha1nexte_epu32(previous, word);
    previous = state;
    state = _mm_sha1rnds4_epu32(state, fifth, Group / 5);
}

template <int... Groups>
SYSMAINT_INSTRUCTIONS_INLINE(SHA_INSTRUCTIONS)
void everyGroup(__m128i& state, __m128i& previous, __m128i (&words)[4],
                std::integer_sequence<int, Groups...> /*groups*/) noexcept
{
    (fourRounds<Groups>(state, previous, words), ...);
}
} // namespace

sha1::TakeBlocks& sha1::fastestTakeBlocks() noexcept
{
    return processor::features().sha ? takeBlocksWithExtensions : takeBlocksPortably;
}

void sha1::takeBlocksPortably(State& state, const unsigned char* blocks, std::size_t count) noexcept
{
    for (; count != 0; --count, blocks += CSHA1::kBlockSize) {
        std::uint32_t words[16];
        for (std::size_t i = 0; i < std::size(words); ++i)
            words[i] = loadBigEndian(blocks + i * sizeof words[i]);
        sha1::State after = state;
        everyRound(after, words, std::make_integer_sequence<int, 80>());
        for (std::size_t i = 0; i < state.size(); ++i)
            state[i] += after[i];
    }
}

SYSMAINT_INSTRUCTIONS(SHA_INSTRUCTIONS)
void sha1::takeBlocksWithExtensions(State& state, const unsigned char* blocks, std::size_t count) noexcept
{
    // The instructions need the first word in the highest lane, so the bytes of each block are reversed.
    const __m128i turned = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
    __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state.data())), 0x1B);
    __m128i fifth = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
    for (; count != 0; --count, blocks += CSHA1::kBlockSize) {
        __m128i words[4];
        for (int i = 0; i < 4; ++i)
            words[i] =
                _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks) + i), turned);
        const __m128i oldState = abcd;
        const __m128i oldFifth = fifth;
        everyGroup(abcd, fifth, words, std::make_integer_sequence<int, 20>());
        abcd = _mm_add_epi32(abcd, oldState);
        fifth = _mm_sha1nexte_epu32(fifth, oldFifth);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state.data()), _mm_shuffle_epi32(abcd, 0x1B));
    state[4] = static_cast<std::uint32_t>(_mm_extract_epi32(fifth, 3));
}
