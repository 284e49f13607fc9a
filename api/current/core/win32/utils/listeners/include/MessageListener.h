#pragma once

#include "core/win32/utils/communication/include/MessageTopic.h"
#include "core/win32/utils/listeners/include/KnownClients.h"
#include "core/win32/utils/listeners/include/LinkProtocol.h"
#include "core/win32/utils/listeners/include/ThreadGroup.h"
#include "win32/communication/include/ListenerOptions.h"

/// What the threads of a listener share: one that accepts clients, and one for each client. The operations
/// raise bare codes.
class ListenerService : public std::enable_shared_from_this<ListenerService>
{
public:
    ListenerService(void* connection, void* topic, const ListenerOptions& options);
    ListenerService(const ListenerService&) = delete;
    ListenerService& operator=(const ListenerService&) = delete;
    ~ListenerService() = default;

    void start();
    /// Disconnects all and waits for the threads.
    void close() noexcept;
    [[nodiscard]] ListenerState getState() noexcept;

private:
    class Client;
    class Posting;
    struct Room // what waits in the topic
    {
        ReadWriteLock lock;
        unsigned long long waiting = 0;
    };

    void acceptClients() noexcept;
    void admit(const WirePtr& wire);
    void leave(bool brokeRule) noexcept;
    /// Raises 1223 once the listener is stopped. Makes no kernel call.
    [[nodiscard]] WaitLimits getLimits(DWORD timeout) const;
    [[nodiscard]] WaitLimits getLimits() const { return getLimits(m_options.timeout); }
    [[nodiscard]] std::shared_ptr<void> takeRoom(std::uint32_t size);

    const ListenerOptions m_options;
    OpenedConnection m_connection;
    SmartHandle<closeTopic> m_topic;
    std::atomic<bool> m_isStopped{false}; // before the event says so
    Win32Handle m_stopEvent = makeEvent();
    std::shared_ptr<Room> m_room = std::make_shared<Room>();
    ReadWriteLock m_lock; // guards what follows
    KnownClients m_known;
    ListenerState m_state;
    ThreadGroup m_threads;
};

/// A listener: the owner of its service, which a handler that closes the listener may still be called by.
class MessageListener
{
public:
    static constexpr const char* kClassName = "MessageListener";

    MessageListener(void* connection, void* topic, const ListenerOptions& options)
        : m_service(std::make_shared<ListenerService>(connection, topic, options))
    {
        m_service->start();
    }
    MessageListener(const MessageListener&) = delete;
    MessageListener& operator=(const MessageListener&) = delete;
    ~MessageListener() { close(); }

    void close() noexcept
    {
        if (!isProcessEnding())
            m_service->close();
    }
    [[nodiscard]] ListenerState getState() noexcept { return m_service->getState(); }

private:
    std::shared_ptr<ListenerService> m_service;
};
using MessageListenerPtr = SharedPtr<MessageListener>;

/// The table of all listeners.
extern ObjectTable<MessageListenerPtr> messageListeners;
