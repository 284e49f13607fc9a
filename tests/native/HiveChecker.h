#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <span>
#include <stdexcept>

#include "core/win32/registry/offline/include/HiveNames.h"

/// Checks what nobody else checks in a written hive: every allocated cell is reached once and with its right
/// length, lists are sorted and hashed, security cells are counted and in a ring, the largest sizes are
/// right, free cells are only at the ends of bins. Throws a description of the error. Shares only the
/// upper-case table with the engine.
class HiveChecker
{
public:
    explicit HiveChecker(std::span<const std::byte> bytes) : m_bytes(bytes)
    {
        std::uint32_t sum = 0;
        for (std::size_t i = 0; i < 508; i += 4)
            sum ^= at(i);
        require(at(508) == (sum == 0 ? 1 : sum == ~0U ? ~1U : sum), "checksum");
        require(at(4) == at(8), "sequence numbers");
        require(at(40) + 4096 == bytes.size(), "size");
        m_minor = at(24);
        for (std::uint32_t offset = 0; offset != at(40); offset += number(offset + 8))
            checkBin(offset);
        checkKey(at(36), ~0U);
        for (const auto& [offset, count] : m_references)
            require(word(offset, 12) == count, "reference count");
        checkRing();
        require(m_used.empty(), "a cell that nobody refers to");
    }

private:
    static void require(bool condition, const char* what)
    {
        if (!condition)
            throw std::runtime_error(what);
    }
    [[nodiscard]] std::uint32_t at(std::size_t file) const
    {
        std::uint32_t value = 0;
        require(file + 4 <= m_bytes.size(), "outside");
        std::memcpy(&value, m_bytes.data() + file, 4);
        return value;
    }
    [[nodiscard]] std::uint32_t number(std::uint32_t offset) const { return at(4096 + std::size_t{offset}); }
    [[nodiscard]] std::uint32_t word(std::uint32_t cell, std::uint32_t place) const
    {
        return number(cell + 4 + place);
    }
    [[nodiscard]] std::uint16_t half(std::uint32_t cell, std::uint32_t place) const
    {
        return static_cast<std::uint16_t>(word(cell, place));
    }
    [[nodiscard]] bool is(std::uint32_t cell, const char* signature) const
    {
        return half(cell, 0) == (signature[0] | signature[1] << 8);
    }

    void checkBin(std::uint32_t begin)
    {
        const std::uint32_t size = number(begin + 8);
        require(number(begin) == 0x6E696268 && number(begin + 4) == begin && size % 4096 == 0 && size != 0,
                "bin");
        std::uint32_t offset = begin + 32;
        while (offset != begin + size) {
            const auto cell = static_cast<std::int32_t>(number(offset));
            require(cell != 0 && cell % 8 == 0, "cell size");
            if (cell < 0)
                m_used[offset] = static_cast<std::uint32_t>(-cell);
            offset += static_cast<std::uint32_t>(cell < 0 ? -cell : cell);
            require(offset <= begin + size && (cell < 0 || offset == begin + size), "free room within a bin");
        }
    }
    void take(std::uint32_t offset, std::uint32_t payload)
    {
        const auto found = m_used.find(offset);
        require(found != m_used.end(), "no cell, or taken twice");
        require(found->second == (payload + 4 + 7) / 8 * 8, "a cell of the wrong length");
        m_used.erase(found);
    }
    [[nodiscard]] std::u16string name(std::uint32_t cell, std::uint32_t place, std::uint32_t length,
                                      bool latin1) const
    {
        std::u16string text;
        for (std::uint32_t i = 0; i < length; i += latin1 ? 1 : 2)
            text += static_cast<char16_t>(latin1 ? word(cell, place + i) & 0xFFU : half(cell, place + i));
        return text;
    }
    /// Returns the name and the length of the class.
    std::pair<std::u16string, std::uint32_t> checkKey(std::uint32_t cell, std::uint32_t parent) // NOLINT
    {
        require(is(cell, "nk"), "nk");
        const std::uint32_t length = half(cell, 72);
        take(cell, 76 + length);
        require(word(cell, 16) == parent, "parent");
        require(word(cell, 24) == 0 && word(cell, 32) == ~0U, "volatile keys");
        require((half(cell, 2) & 7) == (parent == ~0U ? 4 : 0), "flags");
        if (half(cell, 74) != 0)
            take(word(cell, 48), half(cell, 74));
        ++m_references[word(cell, 44)];
        checkValues(cell);
        checkSubKeys(cell);
        return {name(cell, 76, length, (half(cell, 2) & 0x20) != 0), half(cell, 74)};
    }
    void checkSubKeys(std::uint32_t cell)
    {
        const std::uint32_t top = word(cell, 28);
        std::uint32_t left = word(cell, 20), largestName = 0, largestClass = 0;
        std::u16string before;
        const auto leaf = [&](std::uint32_t list) {
            const std::uint32_t count = half(list, 2);
            require(is(list, m_minor >= 5 ? "lh" : "lf") && count <= 507 && count <= left, "list");
            take(list, 4 + 8 * count);
            for (std::uint32_t i = 0; i < count; ++i, --left) {
                auto [name, classLength] = checkKey(word(list, 4 + 8 * i), cell);
                largestName = std::max(largestName, static_cast<std::uint32_t>(name.size() * 2));
                largestClass = std::max(largestClass, classLength);
                std::uint32_t hash = 0, hint = 0;
                const auto first = std::u16string_view(name).substr(0, 4);
                const bool fits = std::ranges::all_of(first, [](char16_t c) { return c <= 0xFF; });
                for (std::size_t c = fits ? first.size() : 0; c-- > 0;)
                    hint = hint << 8U | first[c];
                for (char16_t& c : name) {
                    c = offline::upperCaseTable()[c];
                    hash = 37 * hash + c;
                }
                require(word(list, 8 + 8 * i) == (m_minor >= 5 ? hash : hint), "hash or hint");
                require(before < name, "order of keys");
                before = name;
            }
        };
        if (left == 0) {
            require(top == ~0U, "an empty list");
        } else if (is(top, "ri")) {
            require(left > 507, "a list of lists for few");
            take(top, 4 + 4U * half(top, 2));
            for (std::uint32_t i = 0; i < half(top, 2); ++i)
                leaf(word(top, 4 + 4 * i));
        } else {
            leaf(top);
        }
        require(left == 0, "number of keys");
        require(half(cell, 52) == largestName && word(cell, 56) == largestClass, "largest name or class");
    }
    void checkValues(std::uint32_t cell)
    {
        // A key that stands for a predefined handle has that in place of the number.
        const std::uint32_t count = (half(cell, 2) & 0x40) != 0 ? 0 : word(cell, 36);
        const std::uint32_t list = word(cell, 40);
        if (count != 0)
            take(list, 4 * count);
        std::uint32_t name = 0, data = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::uint32_t value = word(list, 4 * i);
            require(is(value, "vk"), "vk");
            take(value, 20U + half(value, 2));
            name = std::max<std::uint32_t>(name, half(value, 2) * (half(value, 16) % 2 == 0 ? 1U : 2U));
            const std::uint32_t size = word(value, 4) & 0x7FFFFFFFU;
            data = std::max(data, size);
            require((word(value, 4) >> 31U != 0) == (size <= 4), "where data is");
            if (size > 16344 && m_minor >= 4)
                checkSegments(word(value, 8), size);
            else if (size > 4)
                take(word(value, 8), size);
        }
        require(word(cell, 60) == name && word(cell, 64) == data, "largest value");
    }
    void checkSegments(std::uint32_t cell, std::uint32_t size)
    {
        require(is(cell, "db") && half(cell, 2) == (size + 16343) / 16344, "db");
        take(cell, 8);
        const std::uint32_t list = word(cell, 4);
        take(list, 4U * half(cell, 2));
        for (std::uint32_t i = 0; size != 0; ++i) {
            const std::uint32_t part = std::min(size, 16344U);
            take(word(list, 4 * i), part + 4);
            size -= part;
        }
    }
    void checkRing()
    {
        const std::uint32_t first = m_references.begin()->first;
        std::uint32_t cell = first;
        std::set<std::string> descriptors;
        do {
            require(m_references.contains(cell) && is(cell, "sk"), "sk");
            const std::uint32_t length = word(cell, 16);
            take(cell, 20 + length);
            descriptors.emplace(reinterpret_cast<const char*>(m_bytes.data()) + 4096 + cell + 24, length);
            require(word(word(cell, 4), 8) == cell, "ring of security cells");
            cell = word(cell, 4);
        } while (cell != first);
        require(descriptors.size() == m_references.size(), "security cells");
    }

    std::span<const std::byte> m_bytes;
    std::uint32_t m_minor = 0;
    std::map<std::uint32_t, std::uint32_t> m_used, m_references;
};
