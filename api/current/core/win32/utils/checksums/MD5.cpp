#include "core/win32/utils/checksums/include/MD5.h"

#include <bit>
#include <cstring>
#include <utility>

static_assert(std::endian::native == std::endian::little);

namespace {
constexpr std::uint32_t kConstants[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
constexpr int kTurns[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

/// One step. The words of the state do not move: each step addresses them by other names.
template <int Step>
void oneStep(md5::Algorithm::State& state, const std::uint32_t* words) noexcept
{
    constexpr int kRound = Step / 16;
    constexpr int kWord = (kRound == 0   ? Step
                           : kRound == 1 ? 5 * Step + 1
                           : kRound == 2 ? 3 * Step + 5
                                         : 7 * Step) %
                          16;
    std::uint32_t& a = state[(64 - Step) % 4];
    const std::uint32_t b = state[(65 - Step) % 4];
    const std::uint32_t c = state[(66 - Step) % 4];
    const std::uint32_t d = state[(67 - Step) % 4];
    a += words[kWord] + kConstants[Step];
    if constexpr (kRound == 0)
        a += d ^ (b & (c ^ d));
    else if constexpr (kRound == 1)
        a = a + (c & ~d) + (b & d); // the two share no bit, and only one depends on `b`
    else if constexpr (kRound == 2)
        a += (c ^ d) ^ b;
    else
        a += c ^ (b | ~d);
    a = std::rotl(a, kTurns[kRound][Step % 4]) + b;
}

template <int... Steps>
void everyStep(md5::Algorithm::State& state, const std::uint32_t* words,
               std::integer_sequence<int, Steps...> /*steps*/) noexcept
{
    (oneStep<Steps>(state, words), ...);
}
} // namespace

void md5::takeBlocks(Algorithm::State& state, const unsigned char* blocks, std::size_t count) noexcept
{
    Algorithm::State now = state; // a local copy stays in registers
    for (; count != 0; --count, blocks += MD5::kBlockSize) {
        std::uint32_t words[16];
        std::memcpy(words, blocks, sizeof words);
        const Algorithm::State before = now;
        everyStep(now, words, std::make_integer_sequence<int, 64>());
        for (std::size_t i = 0; i < now.size(); ++i)
            now[i] += before[i];
    }
    state = now;
}
