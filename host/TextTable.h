#pragma once

#include <string>
#include <vector>

/// Lines under headings, in columns that are as wide as what is in them.
class TextTable
{
public:
    struct Column
    {
        const wchar_t* heading;
        bool isNumber; // these stand at the right
    };

    explicit TextTable(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    /// One text for each column, fit for a terminal.
    void add(std::vector<std::wstring> line) { m_lines.push_back(std::move(line)); }
    /// On results(). At a terminal the last column is cut where the line would be wider than that.
    void print() const;

private:
    std::vector<Column> m_columns;
    std::vector<std::vector<std::wstring>> m_lines;
};
