#include "engine/ListLines.h"

#include "engine/BootNames.h"

namespace {
constexpr wchar_t kByteOrderMark = 0xFEFF;

/// Whether a line ends here.
bool isEnd(Text text)
{
    return text.length > 1 && text[0] == L'\r' && text[1] == L'\n';
}
} // namespace

bool isDashed(Text line)
{
    for (std::size_t i = 0; i < line.length; ++i)
        if (line[i] != bootnames::kDone)
            return false;
    return true;
}

bool ListLines::next(ListLine& line)
{
    if (m_next == 0) {
        m_next = m_all.find(kByteOrderMark) == 0 ? 1 : 0;
        m_next += m_all.from(m_next).startsWith(bootnames::kHeader) ? bootnames::kHeader.length : 0;
    }
    while (m_next < m_all.length) {
        const Text rest = m_all.from(m_next);
        std::size_t end = 0;
        while (end < rest.length && !isEnd(rest.from(end)) &&
               (end == 0 || !rest.from(end).startsWith(bootnames::kLineBegin)))
            ++end;
        line.text = rest.first(end);
        line.offset = m_next;
        line.isGlued = m_isTorn;
        line.isWhole = isEnd(rest.from(end));
        m_isTorn = !line.isWhole;
        m_next += end + (line.isWhole ? 2 : 0);
        if (!isDashed(line.text)) // this includes an empty line
            return true;
    }
    return false;
}
