#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// Characters that a text may contain, at least one. They are not copied, and not needed once the trie is
/// built.
struct Keyword
{
    static constexpr std::uint32_t kDecides = 0xFFFFFFFF;

    std::wstring_view text;
    bool atBegin = false; ///< found only where the text begins
    bool atEnd = false;   ///< found only where the text ends
    std::uint32_t rule =
        kDecides; ///< the number of the rule to check when it is found; kDecides: none is needed

    /// The characters, plus a zero, which no text contains, for each end of the text.
    [[nodiscard]] std::size_t size() const noexcept
    {
        return text.size() + (atBegin ? 1 : 0) + (atEnd ? 1 : 0);
    }
    [[nodiscard]] wchar_t operator[](std::size_t index) const noexcept
    {
        const std::size_t at = index - (atBegin ? 1 : 0); // wraps before the text
        return at < text.size() ? text[at] : L'\0';
    }
};

/// Finds any number of keywords in a text, reading each of its characters once. Texts and keywords contain no
/// zero characters. Immutable once built.
///
/// Reading forward it is the automaton of A. V. Aho and M. J. Corasick, "Efficient string matching: an aid to
/// bibliographic search", Communications of the ACM 18 (6), 1975, with the edges of all nodes in one hash
/// table: at most some 60 bytes for each character of the keywords, whatever the size of their alphabet.
class KeywordTrie
{
public:
    enum class Reading
    {
        Forward, ///< for occursIn
        Backward ///< for isEndOf: the keywords are at the end of texts
    };

    KeywordTrie() noexcept = default;
    /// Raises std::bad_alloc, also for more than 16 million characters.
    KeywordTrie(const std::vector<Keyword>& keywords, Reading reading);

    [[nodiscard]] bool isEmpty() const noexcept { return m_nodes.empty(); }

    /// Whether the text ends with one of the keywords, or equals one that has atBegin.
    [[nodiscard]] bool isEndOf(std::wstring_view text) const noexcept;

    /// Whether the text contains a keyword that decides, or one for whose rule `ask` returns true. A rule may
    /// be checked as often as its keywords are found.
    template <class Ask>
    [[nodiscard]] bool occursIn(std::wstring_view text, Ask&& ask) const
    {
        if (isEmpty())
            return false;
        std::uint32_t node = step(kRoot, L'\0');
        for (std::size_t i = 0; i <= text.size(); ++i) {
            if (node == kRoot)
                i = nextBeginning(text, i);
            node = step(node, i < text.size() ? text[i] : L'\0');
            for (std::uint32_t at = m_nodes[node].report; at != kRoot;
                 at = m_nodes[m_nodes[at].fallback].report) {
                if (at == kFound)
                    return true;
                for (std::uint32_t rule = m_nodes[at].rule; rule != kNoRule; rule = m_nextRule[rule])
                    if (ask(rule))
                        return true;
            }
        }
        return false;
    }

private:
    static constexpr std::uint32_t kRoot = 0;
    static constexpr std::uint32_t kFound = 0xFFFFFFFF;
    static constexpr std::uint32_t kNoRule = 0xFFFFFFFF;
    static constexpr std::size_t kAscii = 128;
    static constexpr int kNodeBits = 24;
    static constexpr int kPairs = 64;

    struct Node
    {
        std::uint32_t fallback = kRoot; // the longest other keyword prefix that the text ends with here
        std::uint32_t report = kRoot;   // the first node from here on along the fallbacks where keywords end
        std::uint32_t rule =
            kNoRule; // the last rule whose keyword ends here; the others follow in m_nextRule
    };

    /// The node that `c` leads to, or kRoot, to which no edge leads. Most characters of a text lead to the
    /// root.
    [[nodiscard]] std::uint32_t child(std::uint32_t node, wchar_t c) const noexcept
    {
        return node == kRoot && c < kAscii ? m_first[c] : edge(node, c);
    }
    [[nodiscard]] std::uint32_t edge(std::uint32_t node, wchar_t c) const noexcept
    {
        const std::uint64_t key = keyOf(node, c);
        for (std::size_t slot = slotOf(key); m_edges[slot] != 0; slot = (slot + 1) & (m_edges.size() - 1))
            if (m_edges[slot] >> kNodeBits == key)
                return static_cast<std::uint32_t>(m_edges[slot]) & ((1U << kNodeBits) - 1);
        return kRoot;
    }
    [[nodiscard]] std::uint32_t step(std::uint32_t node, wchar_t c) const noexcept
    {
        for (;; node = m_nodes[node].fallback) {
            const std::uint32_t next = child(node, c);
            if (next != kRoot || node == kRoot)
                return next;
        }
    }

    /// The first position from `at` on where a keyword may begin, judged by two characters: at most positions
    /// of a text none does, and the nodes need not be visited. The last position or the end if there is none.
    [[nodiscard]] std::size_t nextBeginning(std::wstring_view text, std::size_t at) const noexcept
    {
        while (at + 1 < text.size()) {
            const unsigned second = text[at + 1] % kPairs;
            if ((m_leading >> second & 1) == 0)
                at += 2; // the character is neither the second of a keyword nor the first
            else if ((m_pairs[text[at] % kPairs] >> second & 1) != 0)
                return at;
            else
                ++at;
        }
        return at;
    }

    static std::uint64_t keyOf(std::uint32_t node, wchar_t c) noexcept
    {
        return static_cast<std::uint64_t>(node) << 16 | c;
    }
    [[nodiscard]] std::size_t slotOf(std::uint64_t key) const noexcept
    {
        return static_cast<std::size_t>(key * 0x9E3779B97F4A7C15ULL >> m_shift);
    }
    std::uint32_t grow(std::uint32_t node, wchar_t c, Reading reading);
    void place(std::uint64_t edge) noexcept;
    void widen();
    void end(std::uint32_t node, const Keyword& keyword);

    std::vector<Node> m_nodes;
    std::vector<std::uint32_t> m_first; // the root's edges for ASCII
    std::vector<std::uint64_t> m_pairs; // for a keyword's first character, the second ones that may follow
    std::uint64_t m_leading = 0;        // characters that are the first or the second of a keyword
    std::vector<std::uint64_t> m_edges; // node, character and target node; zero: free
    std::vector<std::uint32_t> m_nextRule;
    int m_shift = 64;
};
