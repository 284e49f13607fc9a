#include "Command.h"
#include "Console.h"

#include <iterator>
#include <memory>
#include <thread>

#include "OwnedHandle.h"

namespace {
struct Reply
{
    std::wstring line;        // with its end, unless the input ended before it
    bool interrupted = false; // by Ctrl+C, when the read succeeds with nothing
    OwnedHandle read{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

void readLine(HANDLE input, Reply& reply)
{
    wchar_t piece[256];
    DWORD length = 0;
    while (reply.line.empty() || reply.line.back() != L'\n') {
        if (!ReadConsoleW(input, piece, static_cast<DWORD>(std::size(piece)), &length, nullptr))
            break;
        reply.interrupted = length == 0;
        if (reply.interrupted)
            break;
        reply.line.append(piece, length);
    }
    SetEvent(reply.read.get());
}

/// The line typed after a question, with its end. False when the question was cancelled.
bool readReply(std::wstring_view question, DWORD modeOff, const wchar_t* withoutTerminal, std::wstring& line)
{
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (!GetConsoleMode(input, &mode) || !messages().isTerminal())
        throw UsageError{withoutTerminal};
    // Discard what was typed before the question.
    FlushConsoleInputBuffer(input);
    messages().write(question);
    messages().flush();

    if (modeOff != 0)
        SetConsoleMode(input, mode & ~modeOff);
    // Read on a separate thread, which may outlive the question: a waiting read cannot be cancelled.
    const auto reply = std::make_shared<Reply>();
    std::thread([reply, input] { readLine(input, *reply); }).detach();
    const HANDLE either[] = {cancelEvent(), reply->read.get()};
    WaitForMultipleObjects(2, either, FALSE, INFINITE);
    if (modeOff != 0)
        SetConsoleMode(input, mode);
    const bool isCancelledNow = isCancelled() || reply->interrupted;
    if (isCancelledNow || modeOff != 0)
        messages().writeLine(L"");
    if (!isCancelledNow)
        line.swap(reply->line);
    return !isCancelledNow;
}
} // namespace

Answer ask(std::wstring_view question)
{
    std::wstring line;
    if (!readReply(question, 0, L"there is nobody to ask; say --yes", line))
        return Answer::kCancelled;
    return line == L"yes\r\n" || line == L"yes\n" ? Answer::kYes : Answer::kNo;
}

Answer askSecret(std::wstring_view question, std::wstring& secret)
{
    if (!readReply(question, ENABLE_ECHO_INPUT, L"there is nobody to ask for the password", secret))
        return Answer::kCancelled;
    while (!secret.empty() && (secret.back() == L'\n' || secret.back() == L'\r'))
        secret.pop_back();
    return Answer::kYes;
}
