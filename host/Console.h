#pragma once

#include <windows.h>

#include <string>
#include <string_view>

/// One of the two standard streams. A console gets characters, each line at once; anything else gets UTF-8,
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
    /// The code with which writing failed.
    [[nodiscard]] DWORD failure() const { return m_failure; }

private:
    void writeToTerminal(std::wstring_view text);
    void checkWritten(DWORD written);

    HANDLE m_handle;
    bool m_terminal = false;
    bool m_open = true;
    DWORD m_failure = ERROR_SUCCESS;
    std::string m_buffer;
    ULONGLONG m_lastFlush;
};

/// Results.
Output& results();
/// Everything else.
Output& messages();

/// The event that Ctrl+C signals, and so do the end of the console, of the session and of the system; from
/// the first call on they do nothing else.
HANDLE cancelEvent();
[[nodiscard]] bool isCancelled();

/// The program's work, from its beginning to its end with all output written. The system ends the process as
/// soon as it has been told of the end of its console: until this is gone that is put off, as long as the
/// system lets us, so that nothing half done is left behind.
class WorkScope
{
public:
    WorkScope();
    WorkScope(const WorkScope&) = delete;
    WorkScope& operator=(const WorkScope&) = delete;
    ~WorkScope();
};

enum class Answer
{
    kYes,
    kNo,
    kCancelled
};

/// Asks at the console; only the whole answer "yes" is one. Throws UsageError when nobody would see the
/// question or could answer it.
Answer ask(std::wstring_view question);
/// Asks for a text that does not show while it is typed; kYes, or kCancelled. Throws UsageError like ask.
Answer askSecret(std::wstring_view question, std::wstring& secret);

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
