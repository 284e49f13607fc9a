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
    bool interrupted = false; // by Ctrl+C: then the read succeeds with nothing
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
} // namespace

Answer ask(std::wstring_view question)
{
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (!GetConsoleMode(input, &mode) || !messages().isTerminal())
        throw UsageError{L"there is nobody to ask; say --yes"};
    // What was typed before the question is no answer to it.
    FlushConsoleInputBuffer(input);
    messages().write(question);
    messages().flush();

    // Read on a thread of its own, which may outlive the question: nothing can call a waiting read back.
    const auto reply = std::make_shared<Reply>();
    std::thread([reply, input] { readLine(input, *reply); }).detach();
    const HANDLE either[] = {cancelEvent(), reply->read.get()};
    WaitForMultipleObjects(2, either, FALSE, INFINITE);
    if (isCancelled() || reply->interrupted) {
        messages().writeLine(L"");
        return Answer::kCancelled;
    }
    return reply->line == L"yes\r\n" || reply->line == L"yes\n" ? Answer::kYes : Answer::kNo;
}
