#pragma once

#include <windows.h>

#include <string>
#include <string_view>

/// One of the two standard streams. Text goes out as UTF-8; a terminal sees each line at once, anything else
/// at least every quarter of a second.
class Output
{
public:
    explicit Output(DWORD standardHandle);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output();

    void write(std::wstring_view text);
    void writeLine(std::wstring_view text);
    void flush();
    [[nodiscard]] bool isTerminal() const { return m_terminal; }
    /// False once the reader is gone.
    [[nodiscard]] bool isOpen() const { return m_open; }

private:
    HANDLE m_handle;
    bool m_terminal = false;
    bool m_open = true;
    UINT m_oldCodePage = 0;
    std::string m_buffer;
    ULONGLONG m_lastFlush;
};

/// Results.
Output& results();
/// Everything else.
Output& messages();

/// The event that Ctrl+C signals; from the first call on Ctrl+C does nothing else.
HANDLE cancelEvent();

/// A line that is written over and over, on messages() when that is a terminal.
class ProgressLine
{
public:
    /// Whether it is time for a new text: at most some ten times a second, and never without a terminal.
    bool isDue();
    void show(std::wstring_view text);
    /// Takes the line away.
    void clear();

private:
    ULONGLONG m_lastShown = 0;
    std::size_t m_width = 0;
};

/// "1,234,567"
std::wstring formatCount(unsigned long long count);
/// "1.2 GiB"
std::wstring formatBytes(unsigned long long bytes);
/// The system's text for a Win32 code, in one line, with the code.
std::wstring formatCode(long code);
/// A name with its control characters replaced, so that it cannot play with the terminal.
std::wstring printable(std::wstring_view text);
/// A JSON string with its quotes.
std::wstring jsonString(std::wstring_view text);
