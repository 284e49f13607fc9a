#include <atomic>
#include <set>

#include "Command.h"
#include "Console.h"

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/lookup/api.h"
#include "core/win32/utils/scanengine/api.h"

namespace {
constexpr unsigned long kUsualPort = 4448;

constexpr const wchar_t* kHelp = LR"(usage: sysmaint lookup FILE|FOLDER... --server HOST[:PORT] [--json]

Asks a lookup server what it knows of files, and prints a line with the server's status for each as the
answers arrive. Of a folder all files below it are asked for; links are not followed. A file is named to the
server by its SHA-1 hash: neither its path nor its content is sent. What a status means the server says.

The port is 4448 unless another is given; an IPv6 address with a port stands in brackets, [::1]:4448. Nothing is
encrypted. Files without an answer are named with the reason on standard error, and the exit code is 1. A file that
is named twice is asked for once. Ctrl+C ends it and says how many files were answered.

--json prints {"path":...,"status":...} for each file.

example: sysmaint lookup "C:\Downloads" --server lookup.example.org
)";

struct Server
{
    std::wstring host;
    unsigned short port = kUsualPort;
};

Server parseServer(const std::wstring& text)
{
    Server server{text};
    const std::size_t colon = text.rfind(L':');
    const bool bracketed = text.starts_with(L'[');
    const std::size_t bracket = text.rfind(L']');
    const bool hasPort = colon != std::wstring::npos &&
                         (bracketed ? bracket != std::wstring::npos && colon > bracket
                                    : text.find(L':') == colon); // an address of its own has several
    if (hasPort) {
        const std::wstring digits = text.substr(colon + 1);
        const bool isNumber = !digits.empty() && digits.size() <= 5 &&
                              digits.find_first_not_of(L"0123456789") == std::wstring::npos;
        const unsigned long port = isNumber ? std::stoul(digits) : 0;
        if (port == 0 || port > 65535)
            throw UsageError{L"--server: the port is a number from 1 to 65535"};
        server.port = static_cast<unsigned short>(port);
        server.host = text.substr(0, colon);
    }
    if (bracketed && server.host.ends_with(L']'))
        server.host = server.host.substr(1, server.host.size() - 2);
    if (server.host.empty())
        throw UsageError{L"which server? --server HOST[:PORT]"};
    return server;
}

/// One name for all spellings of a file's path, as far as it can be opened.
class Spelling
{
public:
    std::wstring of(const std::wstring& path)
    {
        void* file = CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                 nullptr, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        const auto room = static_cast<DWORD>(m_text.size());
        DWORD length = 0;
        if (file != INVALID_HANDLE_VALUE) {
            length = GetFinalPathNameByHandleW(file, m_text.data(), room, 0);
            CloseHandle(file);
        }
        if (length == 0 || length >= room)
            length = GetFullPathNameW(path.c_str(), room, m_text.data(), nullptr);
        return length == 0 || length >= room ? path : m_text.substr(0, length);
    }

private:
    std::wstring m_text = std::wstring(32768, L'\0');
};

/// As the library, which does not queue a file again that waits under another case of its name.
struct SmallerName
{
    bool operator()(const std::wstring& one, const std::wstring& other) const
    {
        return CompareStringOrdinal(one.c_str(), -1, other.c_str(), -1, TRUE) == CSTR_LESS_THAN;
    }
};

/// Adds what a walk finds, and prints what the server says.
class Lookup : public INotifyHandler, public IMessageHandler
{
public:
    /// `mayRepeat`: files may be named more than once.
    Lookup(const Server& server, bool json, bool mayRepeat)
        : m_json(json), m_mayRepeat(mayRepeat), m_topic(CreateMessageTopic(L"HVKResponses")),
          m_hvk(CreateHVK(L"sysmaint lookup", 0))
    {
        TopicSubscribe(m_topic, *this);
        HVKSetServer(m_hvk, server.host.c_str(), server.port, 60000);
    }
    Lookup(const Lookup&) = delete;
    Lookup& operator=(const Lookup&) = delete;
    ~Lookup() override
    {
        CloseHVK(m_hvk);
        TopicUnsubscribe(m_topic, *this, INFINITE);
    }

    void add(const std::wstring& path)
    {
        if (m_mayRepeat && !m_added.insert(m_spelling.of(path)).second)
            return;
        ++m_files;
        if (const long code = HVKAddPath(m_hvk, path.c_str()); code != ERROR_SUCCESS)
            fail(path.c_str(), code);
    }
    void fail(const wchar_t* path, long code)
    {
        ++m_failures;
        messages().writeLine(printable(path) + L": " + formatCode(code));
    }
    long addFolder(const std::wstring& folder)
    {
        void* engine = CreateFileScanEngine(L"sysmaint lookup");
        for (const unsigned long key : {kContainerFound, kLeafFound, kListingFailed})
            FSEngineRegisterHandler(engine, *this, key, 0, 0);
        ScanOptions options;
        options.depthGiven = 1;
        options.depth = 65535;
        long code = FSEngineAddPath(engine, folder.c_str(), 0);
        if (code == ERROR_SUCCESS)
            code = FSEngineScan(engine, cancelEvent(), SharedPtr<IScanValidator>(DllGetScanValidator()),
                                options);
        CloseFileScanEngine(engine);
        return code;
    }
    void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override
    {
        if (notification.getFirst() == kLeafFound)
            add(item->getPath());
        else if (notification.getFirst() == kListingFailed)
            fail(item->getPath(), static_cast<long>(notification.getValue()));
    }

    using IMessageHandler::onMessage;
    /// On the topic's thread, which alone prints results.
    void onMessage(const HashMessageW& message, HashMessageW&, void*) override
    {
        const wchar_t* path = nullptr;
        std::uint32_t status = 0;
        if (message.getParameter(L"Path", path) != ERROR_SUCCESS ||
            message.getParameter(L"HVKStatus", status) != ERROR_SUCCESS)
            return;
        const std::wstring number = std::to_wstring(status);
        if (m_json)
            results().writeLine(L"{\"path\":" + jsonString(path) + L",\"status\":" + number + L"}");
        else
            results().writeLine(number + L"\t" + printable(path));
        ++m_answers;
    }

    /// Waits for the answers and tells what has none. Returns 0 or 1223.
    long finish()
    {
        long code = WAIT_TIMEOUT;
        while ((code = HVKWait(m_hvk, 200, cancelEvent())) == WAIT_TIMEOUT && !isCancelled())
            if (m_progress.isDue())
                m_progress.show(formatCount(m_answers) + L" of " + formatCount(m_files) + L" files answered");
        if (isCancelled())
            HVKCancel(m_hvk);
        else
            TopicConsumeAll(m_topic, INFINITE);
        m_progress.clear();
        const std::wstring counts =
            formatCount(m_answers) + L" of " + formatCount(m_files) + L" files answered";
        if (isCancelled()) {
            messages().writeLine(L"cancelled; " + counts);
            return ERROR_CANCELLED;
        }
        HVKTakeUnanswered(
            m_hvk,
            [](const wchar_t* path, long reason, void* lookup) {
                static_cast<Lookup*>(lookup)->fail(path, reason);
            },
            this);
        messages().writeLine(counts);
        return ERROR_SUCCESS;
    }
    [[nodiscard]] bool hasFailed() const { return m_failures != 0; }

private:
    bool m_json;
    bool m_mayRepeat;
    Spelling m_spelling;
    std::set<std::wstring, SmallerName> m_added; // only if so
    TopicHandle m_topic;
    void* m_hvk;
    unsigned long long m_files = 0;
    unsigned long long m_failures = 0;
    std::atomic<unsigned long long> m_answers{0};
    ProgressLine m_progress;
};

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--server", true}, {L"--json", false}});
    if (arguments.operands().empty())
        throw UsageError{L"which file or folder?"};
    Lookup lookup(parseServer(arguments.value(L"--server", L"")), arguments.has(L"--json"),
                  arguments.operands().size() > 1);
    for (const std::wstring& operand : arguments.operands()) {
        const DWORD attributes = GetFileAttributesW(operand.c_str());
        if (isCancelled())
            break;
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            lookup.add(operand); // a file that is not there is told like one that cannot be read
        else if (const long code = lookup.addFolder(operand);
                 code != ERROR_SUCCESS && code != ERROR_CANCELLED)
            lookup.fail(operand.c_str(), code);
    }
    if (lookup.finish() == ERROR_CANCELLED)
        return kExitCancelled;
    return lookup.hasFailed() ? kExitFailed : kExitDone;
}
} // namespace

const Command kLookupCommand = {L"lookup", L"ask a server about files by their hashes", kHelp, &run};
