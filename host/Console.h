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

/// The event signalled by Ctrl+C and by the end of the console, the session or the system. From the first
/// call on they do nothing else.
HANDLE cancelEvent();
[[nodiscard]] bool isCancelled();

/// The program's work, from its beginning until all output is written. The system ends the process right
/// after the notification that its console closes. While this object lives that is delayed, as long as the
/// system allows, so nothing is left half done.
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

/// Asks at the console; only the whole answer "yes" counts as one. Throws UsageError when nobody could see or
/// answer the question.
Answer ask(std::wstring_view question);
/// Asks for a text that is not shown while it is typed; kYes or kCancelled. Throws UsageError like ask.
Answer askSecret(std::wstring_view question, std::wstring& secret);

/// A line that is rewritten in place, on messages() when that is a terminal.
class ProgressLine
{
public:
    /// Whether it is time for a new text: at most about ten times a second, and never without a terminal.
    bool isDue();
    void show(std::wstring_view text);
    /// Removes the line.
    void clear();

private:
    ULONGLONG m_lastShown = 0;
    std::size_t m_width = 0;
};

/// "1,234,567"
std::wstring formatCount(unsigned long long count);
/// "1.2 GiB"
std::wstring formatBytes(unsigned long long bytes);
/// The system's message for a Win32 code, on one line, with the code.
std::wstring formatCode(long code);
/// A name with its control characters replaced, so it cannot control the terminal.
std::wstring printable(std::wstring_view text);
/// A JSON string with its quotes.
std::wstring jsonString(std::wstring_view text);
