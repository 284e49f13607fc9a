#include "InputLines.h"

#include <windows.h>

#include <array>
#include <thread>

#include "Console.h"

namespace {
constexpr DWORD kRoom = 4096; // characters of a piece

/// Empty at the end of the input.
std::string readFile(HANDLE input)
{
    std::string piece(kRoom, '\0');
    DWORD size = 0;
    piece.resize(ReadFile(input, piece.data(), kRoom, &size, nullptr) ? size : 0);
    return piece;
}

/// What is typed, as UTF-8; nothing when it begins with Ctrl+Z. Ctrl+C ends the read, and cancels as it does
/// elsewhere.
std::string readTerminal(HANDLE input)
{
    std::array<wchar_t, kRoom> typed{};
    DWORD length = 0;
    if (!ReadConsoleW(input, typed.data(), kRoom, &length, nullptr) || typed[0] == L'\x1a')
        return {};
    if (length == 0)
        SetEvent(cancelEvent());
    std::string piece(std::size_t{length} * 3, '\0');
    piece.resize(static_cast<std::size_t>(
        WideCharToMultiByte(CP_UTF8, 0, typed.data(), static_cast<int>(length), piece.data(),
                            static_cast<int>(piece.size()), nullptr, nullptr)));
    return piece;
}
} // namespace

/// What the thread and its owner share. One of them at a time uses `piece`.
struct InputLines::Reading
{
    Reading() = default;
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
    ~Reading()
    {
        CloseHandle(wanted);
        CloseHandle(read);
    }

    HANDLE wanted = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE read = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::string piece; // empty: there is no more
};

InputLines::InputLines() : m_reading(std::make_shared<Reading>())
{
    std::thread([reading = m_reading] {
        const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
        DWORD mode = 0;
        const bool isTerminal = GetConsoleMode(input, &mode) != 0;
        for (bool hasMore = true; hasMore;) {
            WaitForSingleObject(reading->wanted, INFINITE);
            reading->piece = isTerminal ? readTerminal(input) : readFile(input);
            hasMore = !reading->piece.empty();
            SetEvent(reading->read);
        }
    }).detach();
}

bool InputLines::readPiece()
{
    SetEvent(m_reading->wanted);
    const HANDLE either[] = {cancelEvent(), m_reading->read};
    WaitForMultipleObjects(2, either, FALSE, INFINITE);
    if (isCancelled())
        return false;
    m_hasEnded = m_reading->piece.empty();
    m_rest.append(m_reading->piece);
    return true;
}

bool InputLines::next(std::string& line)
{
    std::size_t end = 0;
    while ((end = m_rest.find('\n')) == std::string::npos && !m_hasEnded)
        if (!readPiece())
            return false;
    if (end == std::string::npos && m_rest.empty())
        return false;
    line = m_rest.substr(0, end);
    m_rest.erase(0, end == std::string::npos ? end : end + 1);
    if (end != std::string::npos && line.ends_with('\r'))
        line.pop_back();
    return true;
}
