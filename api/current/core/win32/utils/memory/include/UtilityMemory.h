#pragma once

#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

/// Memory for callers, released by utilsFreeMemory: it comes from this library's own runtime heap, by
/// operator new, because the runtime's malloc has blocks for itself when memory has run out.
namespace utilitymemory {
struct Free
{
    void operator()(void* memory) const noexcept { ::operator delete(memory); }
};
using Owner = std::unique_ptr<void, Free>;

/// Raises std::bad_alloc.
[[nodiscard]] inline Owner allocate(std::size_t size)
{
    return Owner(::operator new(size));
}

/// Copies a text and two zeros: one ends a text, both end a list.
template <class Char>
[[nodiscard]] Owner copyText(std::basic_string_view<Char> text)
{
    constexpr std::size_t kEnd = 2;
    Owner memory = allocate((text.size() + kEnd) * sizeof(Char));
    auto* target = static_cast<Char*>(memory.get());
    text.copy(target, text.size());
    target[text.size()] = target[text.size() + 1] = Char();
    return memory;
}
} // namespace utilitymemory

/// Records for a caller, collected one by one and then put into one buffer together with their texts.
template <class Record>
class RecordList
{
public:
    /// Adds a record. Its members named in `texts` point to those texts afterwards.
    struct Text
    {
        const wchar_t* Record::*member;
        std::wstring_view text;
    };
    void add(const Record& record, std::initializer_list<Text> texts = {})
    {
        for (const Text& each : texts) {
            m_texts.push_back({m_records.size(), each.member, m_characters.size()});
            m_characters.insert(m_characters.end(), each.text.begin(), each.text.end());
            m_characters.push_back(L'\0');
        }
        m_records.push_back(record);
    }

    [[nodiscard]] std::size_t count() const noexcept { return m_records.size(); }
    /// The one buffer. Raises std::bad_alloc.
    [[nodiscard]] utilitymemory::Owner release() const
    {
        const std::size_t size = m_records.size() * sizeof(Record);
        utilitymemory::Owner memory = utilitymemory::allocate(size + m_characters.size() * sizeof(wchar_t));
        auto* records = static_cast<Record*>(memory.get());
        auto* characters = reinterpret_cast<wchar_t*>(records + m_records.size());
        if (size != 0)
            std::memcpy(static_cast<void*>(records), m_records.data(), size);
        if (!m_characters.empty())
            std::memcpy(characters, m_characters.data(), m_characters.size() * sizeof(wchar_t));
        for (const Place& place : m_texts)
            records[place.record].*place.member = characters + place.offset;
        return memory;
    }

private:
    struct Place
    {
        std::size_t record;
        const wchar_t* Record::*member;
        std::size_t offset;
    };
    std::vector<Record> m_records;
    std::vector<wchar_t> m_characters;
    std::vector<Place> m_texts;
};
