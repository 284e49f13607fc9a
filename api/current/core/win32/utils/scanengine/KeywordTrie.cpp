#include "core/win32/utils/scanengine/include/KeywordTrie.h"

#include <new>

KeywordTrie::KeywordTrie(const std::vector<Keyword>& keywords, Reading reading)
{
    if (keywords.empty())
        return;
    struct Cursor
    {
        const Keyword* keyword;
        std::uint32_t node;
    };
    std::vector<Cursor> growing;
    growing.reserve(keywords.size());
    for (const Keyword& keyword : keywords)
        growing.push_back({&keyword, kRoot});
    m_nodes.emplace_back();
    m_first.resize(kAscii, kRoot);
    m_pairs.resize(kPairs);
    for (const Keyword& keyword : keywords)
        m_pairs[keyword[0] % kPairs] |= keyword.size() == 1 ? ~0ULL : 1ULL << keyword[1] % kPairs;
    for (std::size_t first = 0; first < kPairs; ++first)
        m_leading |= m_pairs[first] | (m_pairs[first] != 0 ? 1ULL << first : 0);
    widen();
    // One character of all keywords after the other: a new node falls back to a less deep one, which is
    // therefore complete, as are the keywords that end in it.
    for (std::size_t depth = 0; !growing.empty(); ++depth) {
        std::size_t left = 0;
        for (Cursor at : growing) {
            const Keyword& keyword = *at.keyword;
            const wchar_t c = keyword[reading == Reading::Forward ? depth : keyword.size() - 1 - depth];
            const std::uint32_t known = child(at.node, c);
            at.node = known != kRoot ? known : grow(at.node, c, reading);
            if (m_nodes[at.node].report == kFound)
                continue; // a part of this keyword already decides every text that contains it
            if (depth + 1 == keyword.size())
                end(at.node, keyword);
            else
                growing[left++] = at;
        }
        growing.resize(left);
    }
}

bool KeywordTrie::isEndOf(std::wstring_view text) const noexcept
{
    if (isEmpty())
        return false;
    std::uint32_t node = kRoot;
    for (std::size_t left = text.size(); left > 0; --left) {
        node = child(node, text[left - 1]);
        if (node == kRoot)
            return false;
        if (m_nodes[node].report == kFound)
            return true;
    }
    return child(node, L'\0') != kRoot;
}

std::uint32_t KeywordTrie::grow(std::uint32_t node, wchar_t c, Reading reading)
{
    if (m_nodes.size() >> kNodeBits != 0)
        throw std::bad_alloc();
    if (m_nodes.size() * 2 > m_edges.size())
        widen();
    Node grown;
    if (reading == Reading::Forward && node != kRoot) {
        grown.fallback = step(m_nodes[node].fallback, c);
        grown.report = m_nodes[grown.fallback].report;
    }
    const auto number = static_cast<std::uint32_t>(m_nodes.size());
    m_nodes.push_back(grown);
    if (node == kRoot && c < kAscii)
        m_first[c] = number;
    else
        place(keyOf(node, c) << kNodeBits | number);
    return number;
}

void KeywordTrie::place(std::uint64_t edge) noexcept
{
    std::size_t slot = slotOf(edge >> kNodeBits);
    while (m_edges[slot] != 0)
        slot = (slot + 1) & (m_edges.size() - 1);
    m_edges[slot] = edge;
}

void KeywordTrie::widen()
{
    constexpr std::size_t kLeast = 16;
    std::vector<std::uint64_t> narrow(m_edges.empty() ? kLeast : m_edges.size() * 2);
    narrow.swap(m_edges);
    m_shift = 64;
    for (std::size_t size = m_edges.size(); size > 1; size /= 2)
        --m_shift;
    for (const std::uint64_t edge : narrow)
        if (edge != 0)
            place(edge);
}

void KeywordTrie::end(std::uint32_t node, const Keyword& keyword)
{
    if (keyword.rule == Keyword::kDecides) {
        m_nodes[node].report = kFound;
        return;
    }
    if (keyword.rule >= m_nextRule.size())
        m_nextRule.resize(keyword.rule + std::size_t{1}, kNoRule);
    m_nextRule[keyword.rule] = m_nodes[node].rule;
    m_nodes[node].rule = keyword.rule;
    m_nodes[node].report = node;
}
