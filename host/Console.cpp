#include "Console.h"

#include <algorithm>

#include "OwnedText.h"

#include "core/win32/utils/formatting/api.h"

namespace {
constexpr ULONGLONG kFlushInterval = 250; // milliseconds
constexpr ULONGLONG kProgressInterval = 100;
constexpr std::size_t kLargestBuffer = 1U << 16U;

HANDLE g_cancelEvent = nullptr;
HANDLE g_workEnded = nullptr;

BOOL WINAPI onControl(DWORD event)
{
    SetEvent(g_cancelEvent);
    // After the other events the system ends the process as soon as this returns, or after its time-out.
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        WaitForSingleObject(g_workEnded, INFINITE);
    return TRUE;
}
} // namespace

Output::Output(DWORD standardHandle) : m_handle(GetStdHandle(standardHandle)), m_lastFlush(GetTickCount64())
{
    DWORD mode = 0;
    m_terminal = GetConsoleMode(m_handle, &mode) != 0;
}

Output::~Output()
{
    flush();
}

void Output::write(std::wstring_view text)
{
    if (text.empty())
        return;
    if (m_terminal)
        return writeToTerminal(text);
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    const std::size_t old = m_buffer.size();
    m_buffer.resize(old + static_cast<std::size_t>(size));
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, m_buffer.data() + old, size, nullptr, nullptr);
    if (m_buffer.size() >= kLargestBuffer || GetTickCount64() - m_lastFlush >= kFlushInterval)
        flush();
}

/// A console takes characters. With bytes in code page 65001, older systems return the number of characters,
/// and one of them twice that.
void Output::writeToTerminal(std::wstring_view text)
{
    constexpr std::size_t kMost = 8192; // the limit of older systems
    while (m_open && !text.empty()) {
        std::size_t length = std::min(text.size(), kMost);
        if (length != text.size() && text[length - 1] >= 0xD800 && text[length - 1] < 0xDC00)
            --length; // keeps a surrogate pair together
        DWORD written = 0;
        m_open = WriteConsoleW(m_handle, text.data(), static_cast<DWORD>(length), &written, nullptr) != 0;
        checkWritten(written);
        text.remove_prefix(std::min<std::size_t>(written, length));
    }
}

/// Called after a write: a reader that takes nothing counts as gone, too.
void Output::checkWritten(DWORD written)
{
    if (!m_open)
        m_failure = GetLastError();
    else if (written == 0)
        m_open = false, m_failure = ERROR_WRITE_FAULT;
}

void Output::writeLine(std::wstring_view text)
{
    write(std::wstring(text) + L"\n");
}

void Output::flush()
{
    std::string_view rest = m_buffer;
    while (m_open && !rest.empty()) {
        DWORD written = 0;
        m_open = WriteFile(m_handle, rest.data(), static_cast<DWORD>(rest.size()), &written, nullptr) != 0;
        checkWritten(written);
        rest.remove_prefix(std::min<std::size_t>(written, rest.size()));
    }
    m_buffer.clear();
    m_lastFlush = GetTickCount64();
}

Output& results()
{
    static Output output(STD_OUTPUT_HANDLE);
    return output;
}

Output& messages()
{
    static Output output(STD_ERROR_HANDLE);
    return output;
}

HANDLE cancelEvent()
{
    return g_cancelEvent;
}

bool isCancelled()
{
    return WaitForSingleObject(cancelEvent(), 0) == WAIT_OBJECT_0;
}

WorkScope::WorkScope()
{
    g_workEnded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g_cancelEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    // First of all: until then Ctrl+C ends the program with a code of the system's choice.
    SetConsoleCtrlHandler(nullptr, FALSE); // a parent may have disabled Ctrl+C
    SetConsoleCtrlHandler(onControl, TRUE);
}

WorkScope::~WorkScope()
{
    results().flush();
    messages().flush();
    SetEvent(g_workEnded);
}

bool ProgressLine::isDue()
{
    return messages().isTerminal() && GetTickCount64() - m_lastShown >= kProgressInterval;
}

void ProgressLine::show(std::wstring_view text)
{
    std::wstring line = L"\r" + std::wstring(text);
    if (text.size() < m_width)
        line.append(m_width - text.size(), L' ');
    m_width = text.size();
    messages().write(line);
    m_lastShown = GetTickCount64();
}

void ProgressLine::clear()
{
    if (m_width == 0)
        return;
    messages().write(L"\r" + std::wstring(m_width, L' ') + L"\r");
    m_width = 0;
}

std::wstring formatCount(unsigned long long count)
{
    return textOf([&](wchar_t** text) { return FormatCount(count, text); });
}

std::wstring formatBytes(unsigned long long bytes)
{
    return textOf([&](wchar_t** text) { return FormatByteSize(bytes, 1, text); });
}

std::wstring formatCode(long code)
{
    std::wstring text =
        textOf([&](wchar_t** target) { return FormatSystemError(static_cast<unsigned long>(code), target); });
    while (!text.empty() && text.back() == L'.')
        text.pop_back();
    const std::wstring number = std::to_wstring(code);
    if (text.empty() && code == 681) // not every system has a message for it
        return L"it is a link, or lies behind one (681)";
    return text.empty() ? L"error " + number : text + L" (" + number + L")";
}

std::wstring printable(std::wstring_view text)
{
    std::wstring safe(text);
    for (wchar_t& c : safe)
        if (c < L' ' || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029 ||
            (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069)) // also those that reverse text
            c = L'?';
    return safe;
}

std::wstring jsonString(std::wstring_view text)
{
    constexpr wchar_t kHex[] = L"0123456789abcdef";
    std::wstring json = L"\"";
    for (std::size_t i = 0; i < text.size(); ++i) {
        const wchar_t c = text[i];
        const bool high = c >= 0xD800 && c < 0xDC00;
        const bool pair = high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
        if (c == L'"' || c == L'\\') {
            json += L'\\';
            json += c;
        } else if (pair) {
            json += c;
            json += text[++i];
        } else if (c < L' ' || (c >= 0x7F && c < 0xA0) || (c >= 0xD800 && c < 0xE000)) {
            // Terminals interpret the first two; UTF-8 has no lone surrogates.
            json += L"\\u";
            for (int shift = 12; shift >= 0; shift -= 4)
                json += kHex[(static_cast<unsigned>(c) >> static_cast<unsigned>(shift)) & 0xFU];
        } else {
            json += c;
        }
    }
    return json + L"\"";
}
