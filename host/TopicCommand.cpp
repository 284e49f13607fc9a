#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include "Command.h"
#include "Console.h"
#include "InputLines.h"

#include "core/win32/utils/listeners/api.h"

namespace {
constexpr wchar_t kText[] = L"Text"; // the parameter of a message
constexpr DWORD kLook = 100;         // milliseconds

constexpr const wchar_t* kHelp = LR"(usage: sysmaint topic listen NAME [--count N] [--reply TEXT] [--json]
       sysmaint topic send NAME [TEXT...] [--timeout SECONDS] [--json]

Exchanges messages between two shells over the named pipe NAME. Only programs of the same user and of
administrators of this machine can take part.

listen prints each message as it arrives, until Ctrl+C or, with --count, after N messages. --reply answers each
message with a text.
send sends each text as a message, or each line of standard input if there is none, and prints what the listener
replies. It waits for a listener for at most --timeout seconds, 0 unless it is given. A message that the listener
did not get is named with the reason on standard error, and so is a line that is not UTF-8 or holds a zero; the exit code is 1.

--json prints {"text":...} for each message or reply.

example: sysmaint topic listen news
         sysmaint topic send news "the scan is done"
)";

void printText(const wchar_t* text, bool json)
{
    results().writeLine(json ? L"{\"text\":" + jsonString(text) + L"}" : printable(text));
    results().flush();
}

HashMessageW messageOf(const std::wstring& topic, const std::wstring& text)
{
    HashMessageW message(topic.c_str(), 1);
    if (const long code = message.setParameter(kText, text.c_str()); code != ERROR_SUCCESS)
        throw code;
    return message;
}

/// A name that is a plain pipe's, without what would tell connections of one process apart.
std::wstring requireName(const Arguments& arguments)
{
    if (arguments.operands().size() < 2)
        throw UsageError{L"which name? sysmaint topic listen|send NAME"};
    const std::wstring& name = arguments.operands()[1];
    if (name.find(L'\\') != std::wstring::npos)
        throw UsageError{L"a name has no backslash"};
    return name;
}

int tell(const std::wstring& what, long code)
{
    if (isCancelled())
        return kExitCancelled;
    messages().writeLine(L"topic: " + printable(what) + L": " + formatCode(code));
    return kExitFailed;
}

/// Prints what arrives, on the threads of the clients.
class Printer : public IMessageHandler
{
public:
    Printer(std::wstring reply, bool json, unsigned long most)
        : m_reply(std::move(reply)), m_json(json), m_most(most)
    {
    }

    using IMessageHandler::onMessage;
    void onMessage(const HashMessageW& message, HashMessageW& reply, void*) override
    {
        const wchar_t* text = nullptr;
        if (const long code = message.getParameter(kText, text); code != ERROR_SUCCESS)
            throw code;
        const std::lock_guard locker(m_lock);
        if (m_most != 0 && m_received == m_most)
            throw static_cast<long>(ERROR_GRACEFUL_DISCONNECT); // the last one has come
        if (!m_reply.empty())
            reply = messageOf(L"", m_reply);
        printText(text, m_json);
        if (!results().isOpen())
            throw static_cast<long>(results().failure());
        ++m_received;
    }
    [[nodiscard]] bool isDone() const { return m_most != 0 && m_received == m_most; }
    /// False once nobody reads what is printed.
    [[nodiscard]] bool isRead()
    {
        const std::lock_guard locker(m_lock);
        return results().isOpen();
    }

private:
    std::wstring m_reply;
    bool m_json;
    unsigned long m_most;
    std::mutex m_lock;
    std::atomic<unsigned long> m_received{0};
};

/// What programs of the same kind may send, and nothing else reaches the printer.
struct TextsOnly : MessageFilter
{
    using MessageFilter::onMessage;
    void onMessage(const MessageW&, MessageW&, void*) override { refuse(); }
    void onMessage(const MessageW&, MessageW&, std::uint32_t, void*) override { refuse(); }
    void onMessage(const DataMessage&, DataMessage&, void*) override { refuse(); }
    void onMessage(const DataMessage&, DataMessage&, std::uint32_t, void*) override { refuse(); }
    void onMessage(const ArrayMessage&, ArrayMessage&, void*) override { refuse(); }
    void onMessage(const ArrayMessage&, ArrayMessage&, std::uint32_t, void*) override { refuse(); }
    void onMessage(const HashMessageW&, HashMessageW&, std::uint32_t, void*) override { refuse(); }

private:
    [[noreturn]] static void refuse() { throw static_cast<long>(ERROR_INVALID_PARAMETER); }
};

int listen(const Arguments& arguments)
{
    const std::wstring name = requireName(arguments);
    if (arguments.operands().size() > 2 || arguments.has(L"--timeout"))
        throw UsageError{L"listen takes a name, --count, --reply and --json"};
    Printer printer(arguments.value(L"--reply", L""), arguments.has(L"--json"),
                    arguments.number(L"--count", 1, 0xFFFFFFFF).value_or(0));
    TextsOnly filter;
    const TopicHandle topic = CreateMessageTopic(name.c_str());
    TopicSubscribe(topic, filter);
    TopicSubscribe(topic, printer);
    void* connection = CreatePipeConnection((name + L"\\listener").c_str(), ConnectionRole::Server);
    if (connection == INVALID_HANDLE_VALUE)
        return tell(name, static_cast<long>(GetLastError()));
    void* listener = CreateMessageListener(name.c_str(), connection, topic);
    const auto code = static_cast<long>(GetLastError());
    CloseConnection(connection);
    if (listener == INVALID_HANDLE_VALUE)
        return tell(name, code);
    messages().writeLine(L"listening on the pipe " + printable(name));
    messages().flush();
    while (!printer.isDone() && printer.isRead() &&
           WaitForSingleObject(cancelEvent(), kLook) != WAIT_OBJECT_0) {
    }
    // The client of the last message takes its answer and goes.
    ListenerState state;
    for (int look = 0; look < 10 && printer.isDone() && ListenerGetState(listener, &state) == ERROR_SUCCESS &&
                       state.clients != 0;
         ++look)
        WaitForSingleObject(cancelEvent(), kLook);
    CloseMessageListener(listener);
    TopicUnsubscribe(topic, printer, INFINITE);
    return printer.isDone() || !printer.isRead() ? kExitDone : kExitCancelled; // main reports the latter
}

/// Sends texts over one reporter.
class Sender
{
public:
    Sender(std::wstring name, const Arguments& arguments)
        : m_name(std::move(name)), m_json(arguments.has(L"--json")),
          m_limit(GetTickCount64() + 1000ULL * arguments.number(L"--timeout", 0, 86400).value_or(0)),
          m_topic(CreateMessageTopic(m_name.c_str()))
    {
        void* connection = CreatePipeConnection((m_name + L"\\sender").c_str(), ConnectionRole::Client);
        if (connection == INVALID_HANDLE_VALUE)
            throw static_cast<long>(GetLastError());
        ReporterOptions options;
        options.mode = ReportMode::Send;
        m_reporter.reset(DllGetMessageReporter(connection, options));
        const auto code = static_cast<long>(GetLastError());
        CloseConnection(connection);
        if (!m_reporter)
            throw code;
        TopicSubscribe(m_topic, *m_reporter);
    }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    ~Sender()
    {
        if (m_reporter)
            TopicUnsubscribe(m_topic, *m_reporter, INFINITE);
    }

    /// Returns 0, the code of the listener's handler, or why the message did not reach it.
    long send(const std::wstring& text)
    {
        const HashMessageW message = messageOf(m_name, text);
        for (;;) {
            HashMessageW reply;
            const long code = TopicSendMessage(m_topic, message, reply, nullptr);
            const wchar_t* answer = nullptr;
            if (code == ERROR_SUCCESS && reply.getParameter(kText, answer) == ERROR_SUCCESS)
                printText(answer, m_json);
            if (code != ERROR_FILE_NOT_FOUND || GetTickCount64() >= m_limit)
                return code;
            if (WaitForSingleObject(cancelEvent(), kLook) == WAIT_OBJECT_0)
                return ERROR_CANCELLED;
        }
    }
    /// Says why a text did not arrive, unless the user ended it. Another 1223 is the listener's.
    [[nodiscard]] int tellFailure(const std::wstring& text, long code) const
    {
        if (code != ERROR_FILE_NOT_FOUND || isCancelled())
            return tell(text, code);
        messages().writeLine(L"topic: " + printable(text) + L": nobody listens on \"" + printable(m_name) +
                             L"\" (2)");
        return kExitFailed;
    }

private:
    std::wstring m_name;
    bool m_json;
    ULONGLONG m_limit;
    TopicHandle m_topic;
    std::unique_ptr<IMessageReporter> m_reporter;
};

/// None for what is not UTF-8, and for what a message would cut: bytes of UTF-16 are full of zeros.
std::optional<std::wstring> fromUtf8(const std::string& text)
{
    if (text.find('\0') != std::string::npos)
        return {};
    std::wstring wide(text.size(), L'\0');
    const int size =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()),
                            wide.data(), static_cast<int>(wide.size()));
    if (size == 0 && !text.empty())
        return {};
    wide.resize(static_cast<std::size_t>(size));
    return wide;
}

int send(const Arguments& arguments)
{
    if (arguments.has(L"--count") || arguments.has(L"--reply"))
        throw UsageError{L"send takes a name, texts, --timeout and --json"};
    const std::wstring name = requireName(arguments);
    int exitCode = kExitDone;
    try {
        Sender sender(name, arguments);
        const auto sendOne = [&](const std::wstring& text) {
            const long code = isCancelled() ? static_cast<long>(ERROR_CANCELLED) : sender.send(text);
            if (code != ERROR_SUCCESS)
                exitCode = std::max(exitCode, sender.tellFailure(text, code));
            return exitCode != kExitCancelled;
        };
        const auto& texts = arguments.operands();
        for (std::size_t i = 2; i < texts.size(); ++i)
            if (!sendOne(texts[i]))
                return exitCode;
        if (texts.size() > 2)
            return isCancelled() ? kExitCancelled : exitCode;
        InputLines lines;
        unsigned long long number = 0;
        for (std::string line; lines.next(line);) {
            ++number;
            const std::optional<std::wstring> text = fromUtf8(line);
            if (!text)
                exitCode = std::max(exitCode,
                                    tell(L"line " + std::to_wstring(number), ERROR_NO_UNICODE_TRANSLATION));
            else if (!sendOne(*text))
                return exitCode;
        }
    } catch (long code) {
        return tell(name, code);
    }
    return isCancelled() ? kExitCancelled : exitCode;
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(
        words, {{L"--count", true}, {L"--reply", true}, {L"--timeout", true}, {L"--json", false}});
    const std::wstring action = arguments.operands().empty() ? L"" : arguments.operands()[0];
    if (action == L"listen")
        return listen(arguments);
    if (action == L"send")
        return send(arguments);
    throw UsageError{L"listen or send?"};
}
} // namespace

const Command kTopicCommand = {L"topic", L"exchange messages between two shells", kHelp, &run};
