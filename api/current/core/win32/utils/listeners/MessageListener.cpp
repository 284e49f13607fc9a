#include "core/win32/utils/listeners/include/MessageListener.h"

using linkprotocol::Answer;
using linkprotocol::Arrived;
using linkprotocol::Greeting;
using linkprotocol::Request;
using linkprotocol::Task;

constexpr char kMessageListenerHeader[] = "core\\win32\\utils\\listeners\\include\\MessageListener.h";

namespace {
constexpr DWORD kRetryInterval = 1000;    // milliseconds until a client is accepted again after a failure
constexpr std::uint32_t kOverhead = 1024; // bytes that a message counts for beside its own

const ListenerOptions& checked(const ListenerOptions& options)
{
    if (options.mostClients == 0 || options.timeout == 0 || options.mostWaiting == 0)
        raiseCode(ERROR_INVALID_PARAMETER);
    return options;
}

void* openAgain(void* topic)
{
    requireSuccess(messageTopics().openAgain(topic));
    return topic;
}
} // namespace

// Listeners hold topics and connections.
ObjectTable<MessageListenerPtr> messageListeners(5);

/// The post of one client, of which only one is under way, over whichever connection. It counts once it has
/// been posted.
class ListenerService::Posting
{
public:
    Posting(ListenerService& service, std::uint64_t client, std::uint64_t number)
        : m_service(service), m_number(number)
    {
        const WriteLocker locker(service.m_lock);
        m_client = service.m_known.begin(client);
        if (m_client == nullptr)
            raiseCode(linkprotocol::kTryLater);
        isRepeated = number <= m_client->lastNumber;
    }
    Posting(const Posting&) = delete;
    Posting& operator=(const Posting&) = delete;
    ~Posting()
    {
        const WriteLocker locker(m_service.m_lock);
        m_client->isPosting = false;
    }

    void succeed() noexcept
    {
        const WriteLocker locker(m_service.m_lock);
        m_client->lastNumber = m_number;
        ++m_service.m_state.posted;
    }

    bool isRepeated = false;

private:
    ListenerService& m_service;
    std::uint64_t m_number;
    KnownClients::Client* m_client = nullptr;
};

/// One client, served by a thread of its own. What it holds is let go of with it, even if a handler ends the
/// thread.
class ListenerService::Client
{
public:
    Client(std::shared_ptr<ListenerService> service, WirePtr wire)
        : m_service(std::move(service)), m_wire(std::move(wire))
    {
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { m_service->leave(m_brokeRule); }

    void serve()
    {
        try {
            greet();
            for (;;)
                serveRequest();
        } catch (long code) {
            m_brokeRule = code == ERROR_INVALID_DATA || (code == WAIT_TIMEOUT && !m_service->m_isStopped);
            throw;
        }
    }

private:
    void greet()
    {
        Greeting greeting;
        m_wire->readAll(&greeting, sizeof greeting, m_service->getLimits());
        if (greeting.version != Greeting().version)
            raiseCode(ERROR_INVALID_DATA);
        m_number = greeting.client;
    }

    // A client may be silent between requests, and not in the middle of one.
    void serveRequest()
    {
        auto* bytes = reinterpret_cast<unsigned char*>(&m_heading);
        std::size_t done = m_wire->readSome(bytes, sizeof m_heading, m_service->getLimits(INFINITE));
        const WaitLimits limits = m_service->getLimits();
        if (done < sizeof m_heading.request) {
            m_wire->readAll(bytes + done, sizeof m_heading.request - done, limits);
            done = sizeof m_heading.request;
        }
        const Task task = m_heading.request.task;
        if (task != Task::Post && task != Task::Send)
            raiseCode(ERROR_INVALID_DATA);
        m_wire->readAll(bytes + done, sizeof m_heading - done, limits);
        const std::uint32_t length = m_heading.frame.length;
        const bool isTooLarge = length > m_service->m_connection->getFrameLimit();
        if (isTooLarge)
            messageframe::skipBody(*m_wire, length, limits);
        else
            m_body.emplace(*m_wire, length, limits);
        const long code = isTooLarge ? long{ERROR_MESSAGE_EXCEEDS_MAX_SIZE} : boundary::statusOf([&] {
            m_message = messageframe::loadMessage(m_heading.frame.messageClass, m_body->getStream(), nullptr);
            m_body.reset();
            return deliverAny();
        });
        answer(code);
    }

    void answer(long code)
    {
        Answer answer{static_cast<std::uint32_t>(code), 0};
        std::vector<unsigned char> bytes;
        m_message = AnyMessage();
        if (code == ERROR_SUCCESS && m_reply)
            code = boundary::statusOf([&]() -> long {
                answer.hasReply = 1;
                bytes = messageframe::makeFrame(&answer, sizeof answer,
                                                static_cast<MessageClass>(m_heading.frame.messageClass),
                                                *m_reply, m_service->m_connection->getFrameLimit());
                return ERROR_SUCCESS;
            });
        m_reply = SharedPtr<MessageW>();
        if (!bytes.empty())
            return m_wire->writeAll(bytes.data(), bytes.size(), m_service->getLimits());
        answer = {static_cast<std::uint32_t>(code), 0};
        m_wire->writeAll(&answer, sizeof answer, m_service->getLimits());
    }

    long deliverAny()
    {
        switch (m_message.messageClass) {
        case MessageClass::MessageW:
            return deliver<MessageW>();
        case MessageClass::DataMessage:
            return deliver<DataMessage>();
        case MessageClass::ArrayMessage:
            return deliver<ArrayMessage>();
        case MessageClass::HashMessageW:
            return deliver<HashMessageW>();
        default:
            return ERROR_NOT_SUPPORTED; // topics do not take it
        }
    }

    template <class Message>
    long deliver()
    {
        const auto& message = static_cast<const Message&>(*m_message.wide);
        return m_heading.request.task == Task::Post ? post(message) : send(message);
    }

    template <class Message>
    long post(const Message& message)
    {
        Posting posting(*m_service, m_number, m_heading.request.number);
        if (posting.isRepeated)
            return ERROR_SUCCESS;
        const long code =
            withTopic(PLACE(kMessageListenerHeader, "ListenerService::post", __LINE__),
                      m_service->m_topic.get(), [&](MessageTopic& topic) {
                          topic.postShared(makeShared<MessageW, Arrived<Message>>(
                                               message, m_service->takeRoom(m_heading.frame.length)),
                                           m_heading.request.value);
                      });
        if (code == ERROR_SUCCESS)
            posting.succeed();
        return code == ERROR_NOT_ENOUGH_MEMORY ? linkprotocol::kTryLater : code;
    }

    template <class Message>
    long send(const Message& message)
    {
        m_message.wide = makeShared<MessageW, Arrived<Message>>(message, nullptr);
        m_reply = makeShared<MessageW, Message>();
        const long code = withCalledTopic(
            PLACE(kMessageListenerHeader, "ListenerService::send", __LINE__), m_service->m_topic.get(),
            [&](MessageTopic& topic) {
                topic.sendMessage<Message>(static_cast<const Message&>(*m_message.wide),
                                           static_cast<Message&>(*m_reply), m_heading.request.value, nullptr);
            });
        const WriteLocker locker(m_service->m_lock);
        ++m_service->m_state.sent;
        return code;
    }

    std::shared_ptr<ListenerService> m_service;
    WirePtr m_wire;
    std::uint64_t m_number = 0; // that stands for the client
    bool m_brokeRule = false;
    // Of the request that is being served.
    struct Heading
    {
        Request request;
        messageframe::Header frame;
    } m_heading;
    static_assert(sizeof(Heading) == 24);
    std::optional<messageframe::Body> m_body;
    AnyMessage m_message;
    SharedPtr<MessageW> m_reply;
};

ListenerService::ListenerService(void* connection, void* topic, const ListenerOptions& options)
    : m_options(checked(options)), m_connection(connection), m_topic(openAgain(topic))
{
}

void ListenerService::start()
{
    m_connection->listen(WaitLimits(m_options.timeout, nullptr));
    try {
        m_threads.start([self = shared_from_this()] { self->acceptClients(); });
    } catch (...) {
        m_connection->disconnect();
        throw;
    }
}

WaitLimits ListenerService::getLimits(DWORD timeout) const
{
    if (m_isStopped)
        raiseCode(ERROR_CANCELLED);
    return {Deadline(waitLimit(timeout)), m_stopEvent.get()};
}

void ListenerService::acceptClients() noexcept
{
    for (;;) {
        const long code = boundary::statusOf([&]() -> long {
            admit(m_connection->accept(getLimits(INFINITE)));
            return ERROR_SUCCESS;
        });
        if (m_isStopped)
            return;
        {
            const WriteLocker locker(m_lock);
            m_state.code = code;
        }
        if (code == ERROR_NOT_CONNECTED)
            return;
        if (code != ERROR_SUCCESS)
            WaitForSingleObject(m_stopEvent.get(), kRetryInterval);
    }
}

void ListenerService::admit(const WirePtr& wire)
{
    {
        const WriteLocker locker(m_lock);
        if (m_state.clients >= m_options.mostClients) {
            ++m_state.disconnected;
            return;
        }
        ++m_state.clients;
    }
    const auto client = [&] {
        try {
            return std::make_shared<Client>(shared_from_this(), wire);
        } catch (...) {
            leave(false);
            throw;
        }
    }();
    m_threads.start([client] { client->serve(); });
}

void ListenerService::leave(bool brokeRule) noexcept
{
    const WriteLocker locker(m_lock);
    --m_state.clients;
    m_state.disconnected += brokeRule ? 1 : 0;
}

// What is returned gives the room back when the last copy of the message is gone.
std::shared_ptr<void> ListenerService::takeRoom(std::uint32_t size)
{
    const unsigned long long taken = std::uint64_t{size} + kOverhead;
    const std::shared_ptr<Room> room = m_room;
    auto giveBack = [room, taken](void*) {
        const WriteLocker locker(room->lock);
        room->waiting -= taken;
    };
    {
        const WriteLocker locker(room->lock);
        if (room->waiting != 0 && room->waiting + taken > m_options.mostWaiting)
            raiseCode(linkprotocol::kTryLater);
        room->waiting += taken;
    }
    return {room.get(), giveBack}; // which it calls when it cannot be made
}

ListenerState ListenerService::getState() noexcept
{
    const ReadLocker locker(m_lock);
    return m_state;
}

void ListenerService::close() noexcept
{
    m_isStopped = true;
    if (signalSurely(m_stopEvent.get()))
        m_threads.wait();
    m_connection.end();
}
