#pragma once

#include <string>
#include <vector>

/// Lines under headings, in columns as wide as their content.
class TextTable
{
public:
    struct Column
    {
        const wchar_t* heading;
        bool isNumber; // aligned to the right
    };

    explicit TextTable(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    /// One text for each column, safe for a terminal.
    void add(std::vector<std::wstring> line) { m_lines.push_back(std::move(line)); }
    /// Prints on results(). On a terminal the last column is cut to fit its width.
    void print() const;

private:
    std::vector<Column> m_columns;
    std::vector<std::vector<std::wstring>> m_lines;
};
