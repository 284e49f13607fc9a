#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>

#include "core/win32/utils/lookup/include/SHA1.h"

/// Whether STAT may be used in place of LIST: it has shown two folders that differ as LIST does.
class StatusProof
{
public:
    [[nodiscard]] bool isProven() const noexcept { return m_left == 0; }
    /// Whether a folder is to be compared whose listing has this fingerprint.
    [[nodiscard]] bool takes(std::size_t fingerprint) const noexcept
    {
        return m_left > 0 && fingerprint != m_last;
    }
    void confirm(std::size_t fingerprint) noexcept
    {
        --m_left;
        m_last = fingerprint;
    }
    void refute() noexcept { m_left = -1; }

private:
    int m_left = 2;         // folders to compare, or -1 when it has shown another one otherwise
    std::size_t m_last = 0; // the one compared
};

/// Numbers that nobody can foresee, not even who has seen those before.
class SecretNumbers
{
public:
    /// The next one, of ten digits.
    [[nodiscard]] std::string next()
    {
        if (m_count++ == 0) {
            std::random_device random; // a call of the system for each, so there are few
            for (std::uint32_t& word : m_key)
                word = random();
        }
        CSHA1 hash;
        hash.update(m_key.data(), sizeof m_key);
        hash.update(&m_count, sizeof m_count);
        return std::to_string((loadBigEndian(hash.finish().data()) & 0x3FFFFFFFU) | 0x40000000U);
    }

private:
    std::array<std::uint32_t, 4> m_key{};
    std::uint64_t m_count = 0;
};
