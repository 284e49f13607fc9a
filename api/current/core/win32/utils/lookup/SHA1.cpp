#include "include/SHA1.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <utility>

#include <immintrin.h>
#include <intrin.h>

#if defined(__GNUC__) || defined(__clang__)
// These compilers let a function use only the instructions that it names.
#define SYSMAINT_SHA_INSTRUCTIONS __attribute__((target("sha,sse4.1,ssse3")))
#define SYSMAINT_SHA_INLINE __attribute__((target("sha,sse4.1,ssse3"), always_inline)) inline
#else
#define SYSMAINT_SHA_INSTRUCTIONS
#define SYSMAINT_SHA_INLINE __forceinline
#endif

namespace {
std::uint32_t loadBigEndian(const unsigned char* bytes) noexcept
{
    return (static_cast<std::uint32_t>(bytes[0]) << 24U) | (static_cast<std::uint32_t>(bytes[1]) << 16U) |
           (static_cast<std::uint32_t>(bytes[2]) << 8U) | bytes[3];
}

void storeBigEndian(unsigned char* bytes, std::uint64_t value, std::size_t size) noexcept
{
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(value >> (8 * (size - 1 - i)));
}

/// One round. `words` holds the last 16 words of the schedule. The five words of the state do not change
/// places: each round takes them by other names.
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
SYSMAINT_SHA_INLINE void fourRounds(__m128i& state, __m128i& previous, __m128i (&words)[4]) noexcept
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
SYSMAINT_SHA_INLINE void everyGroup(__m128i& state, __m128i& previous, __m128i (&words)[4],
                                    std::integer_sequence<int, Groups...> /*groups*/) noexcept
{
    (fourRounds<Groups>(state, previous, words), ...);
}
} // namespace

bool sha1::hasExtensions() noexcept
{
    static const bool has = [] {
        int leaf[4];
        __cpuid(leaf, 0);
        if (leaf[0] < 7)
            return false;
        __cpuid(leaf, 1);
        const bool shuffles = (leaf[2] & (1 << 9)) != 0 && (leaf[2] & (1 << 19)) != 0; // SSSE3, SSE4.1
        __cpuidex(leaf, 7, 0);
        return shuffles && (leaf[1] & (1 << 29)) != 0;
    }();
    return has;
}

sha1::TakeBlocks& sha1::fastestTakeBlocks() noexcept
{
    return hasExtensions() ? takeBlocksWithExtensions : takeBlocksPortably;
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

SYSMAINT_SHA_INSTRUCTIONS
void sha1::takeBlocksWithExtensions(State& state, const unsigned char* blocks, std::size_t count) noexcept
{
    // The instructions want the first word in the highest lane, and so the bytes of each block turned about.
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

void CSHA1::update(const void* data, std::size_t size) noexcept
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    const std::size_t held = m_length % kBlockSize;
    m_length += size;
    if (held != 0) {
        const std::size_t taken = std::min(size, kBlockSize - held);
        std::copy_n(bytes, taken, m_block.begin() + static_cast<std::ptrdiff_t>(held));
        if (held + taken < kBlockSize)
            return;
        m_takeBlocks(m_state, m_block.data(), 1);
        bytes += taken;
        size -= taken;
    }
    m_takeBlocks(m_state, bytes, size / kBlockSize);
    const std::size_t rest = size % kBlockSize;
    std::copy_n(bytes + (size - rest), rest, m_block.begin());
}

CSHA1::Digest CSHA1::finish() noexcept
{
    static constexpr unsigned char kPadding[kBlockSize] = {0x80};
    static constexpr std::size_t kLengthSize = 8;
    unsigned char bits[kLengthSize];
    storeBigEndian(bits, m_length * 8, kLengthSize);
    // At least the one bit, then zeros up to the length, which ends a block.
    const std::size_t held = m_length % kBlockSize;
    update(kPadding, (held < kBlockSize - kLengthSize ? kBlockSize : 2 * kBlockSize) - kLengthSize - held);
    update(bits, kLengthSize);

    Digest digest;
    for (std::size_t i = 0; i < m_state.size(); ++i)
        storeBigEndian(digest.data() + i * sizeof m_state[i], m_state[i], sizeof m_state[i]);
    *this = CSHA1(*m_takeBlocks);
    return digest;
}
