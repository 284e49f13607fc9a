#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

/// What MD5, SHA-1 and SHA-256 have in common: blocks of 64 bytes; at the end one bit, zeros and the length
/// in bits.
///
/// `Algorithm` defines its State (words of 32 bits), kInitialState and kBigEndian. The constructor takes the
/// function that processes whole blocks. No operation can fail; an object serves one thread at a time.
template <class Algorithm>
class BlockHash
{
public:
    using State = typename Algorithm::State;
    using TakeBlocks = void(State& state, const unsigned char* blocks, std::size_t count) noexcept;

    static constexpr std::size_t kDigestSize = sizeof(State); // bytes
    static constexpr std::size_t kBlockSize = 64;             // bytes
    using Digest = std::array<unsigned char, kDigestSize>;

    explicit BlockHash(TakeBlocks& takeBlocks) noexcept : m_takeBlocks(&takeBlocks) {}

    /// Processes the next `size` bytes; null is allowed for none.
    void update(const void* data, std::size_t size) noexcept
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

    /// The hash of all bytes so far, in the standard's byte order. The object is as new afterwards.
    Digest finish() noexcept
    {
        static constexpr unsigned char kPadding[kBlockSize] = {0x80};
        static constexpr std::size_t kLengthSize = 8;
        unsigned char bits[kLengthSize];
        store(bits, m_length * 8, kLengthSize);
        // The one bit, then zeros up to the length, which ends a block.
        const std::size_t held = m_length % kBlockSize;
        update(kPadding,
               (held < kBlockSize - kLengthSize ? kBlockSize : 2 * kBlockSize) - kLengthSize - held);
        update(bits, kLengthSize);

        Digest digest;
        constexpr std::size_t kWordSize = sizeof(typename State::value_type);
        for (std::size_t i = 0; i < m_state.size(); ++i)
            store(digest.data() + i * kWordSize, m_state[i], kWordSize);
        *this = BlockHash(*m_takeBlocks);
        return digest;
    }

private:
    static void store(unsigned char* bytes, std::uint64_t value, std::size_t size) noexcept
    {
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<unsigned char>(value >> (8 * (Algorithm::kBigEndian ? size - 1 - i : i)));
    }

    TakeBlocks* m_takeBlocks;
    State m_state = Algorithm::kInitialState;
    std::uint64_t m_length = 0; // bytes so far; those of the last unfinished block are in m_block
    std::array<unsigned char, kBlockSize> m_block{};
};

/// The word at `bytes`, most significant byte first.
inline std::uint32_t loadBigEndian(const unsigned char* bytes) noexcept
{
    return (static_cast<std::uint32_t>(bytes[0]) << 24U) | (static_cast<std::uint32_t>(bytes[1]) << 16U) |
           (static_cast<std::uint32_t>(bytes[2]) << 8U) | bytes[3];
}
