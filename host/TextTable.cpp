#include "TextTable.h"

#include <algorithm>

#include "Console.h"

namespace {
constexpr std::size_t kGap = 2;

/// The width of the terminal in characters; no limit without a terminal.
std::size_t lineWidth()
{
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    if (!results().isTerminal() || !GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &screen))
        return std::wstring::npos;
    return static_cast<std::size_t>(std::max<int>(screen.srWindow.Right - screen.srWindow.Left, 1));
}

/// Never splits a surrogate pair.
void cut(std::wstring& line, std::size_t width)
{
    constexpr std::wstring_view kMark = L"...";
    if (line.size() <= width)
        return;
    line.resize(width > kMark.size() ? width - kMark.size() : 0);
    if (!line.empty() && line.back() >= 0xD800 && line.back() < 0xDC00)
        line.pop_back();
    line += kMark;
}
} // namespace

void TextTable::print() const
{
    std::vector<std::wstring> headings;
    std::vector<std::size_t> widths;
    for (const Column& each : m_columns) {
        headings.emplace_back(each.heading);
        widths.push_back(headings.back().size());
    }
    for (const auto& line : m_lines)
        for (std::size_t i = 0; i < line.size(); ++i)
            widths[i] = std::max(widths[i], line[i].size());
    const std::size_t width = lineWidth();
    const auto printLine = [&](const std::vector<std::wstring>& line) {
        std::wstring text;
        for (std::size_t i = 0; i < line.size(); ++i) {
            const std::wstring blanks(widths[i] - line[i].size(), L' ');
            text += m_columns[i].isNumber ? blanks + line[i] : line[i] + blanks;
            text.append(kGap, L' ');
        }
        text.erase(text.find_last_not_of(L' ') + 1);
        cut(text, width);
        results().writeLine(text);
    };
    printLine(headings);
    for (const auto& line : m_lines)
        printLine(line);
}
