#pragma once

#include <deque>
#include <list>

#include "core/win32/utils/listeners/include/MessageLink.h"
#include "core/win32/utils/listeners/include/ThreadGroup.h"
#include "win32/communication/include/IMessageReporter.h"

/// The two ways of a reporter: what it queues for its thread, and what it sends at once.
class ReportLine
{
public:
    ReportLine(void* connection, const ReporterOptions& options);
    ReportLine(const ReportLine&) = delete;
    ReportLine& operator=(const ReportLine&) = delete;
    ~ReportLine() = default;

    [[nodiscard]] ReportMode getMode() const noexcept { return m_options.mode; }

    /// Queues a message, or counts it as refused.
    template <class Message>
    void queue(const Message& message, std::uint32_t value) noexcept
    {
        const long code = boundary::statusOf([&]() -> long {
            add(m_link.makeRequest({linkprotocol::Task::Post, value, 0}, message));
            return ERROR_SUCCESS;
        });
        if (code != ERROR_SUCCESS)
            note(code);
    }
    /// Forwards a message and returns the reply. Raises the code of the exchange, or the peer's.
    template <class Message>
    [[nodiscard]] AnyMessage send(const Message& message, std::uint32_t value)
    {
        AnyMessage reply;
        const long code = boundary::statusOf([&]() -> long {
            const long answer =
                exchange(m_link.makeRequest({linkprotocol::Task::Send, value, 0}, message), reply);
            if (answer == ERROR_SUCCESS &&
                (!reply.wide || reply.messageClass != linkprotocol::kClassOf<Message>))
                return ERROR_INVALID_DATA;
            return answer;
        });
        note(code);
        requireSuccess(code);
        return reply;
    }
    [[nodiscard]] long flush(const WaitLimits& limits);
    [[nodiscard]] ReporterState getState() noexcept;
    /// Ends all that is under way, and the connection.
    void close() noexcept;
    /// What the reporter's thread runs.
    void forward() noexcept;

private:
    class Turn;
    using Bytes = std::vector<unsigned char>;

    void add(Bytes request);
    void note(long code) noexcept;
    [[nodiscard]] long exchange(const Bytes& request, AnyMessage& reply);
    // These are called with the lock held.
    void count(long code) noexcept;
    void endFlushes() noexcept;
    void forwardFirst() noexcept;
    void pause() noexcept;

    const ReporterOptions m_options;
    MessageLink m_link; // used by who has the turn
    Win32Handle m_stopEvent = makeEvent();
    ReadWriteLock m_lock; // guards what follows
    CONDITION_VARIABLE m_changed = CONDITION_VARIABLE_INIT;
    std::deque<Bytes> m_queue;
    unsigned long long m_bytes = 0; // in the queue
    std::uint64_t m_lastNumber = 0;
    ReporterState m_state;
    std::list<Win32Handle> m_flushing; // events of who waits for the empty queue
    bool m_taken = false;              // somebody uses the link
    bool m_stopped = false;
};

/// A reporter: a handler in front of its line, which its thread may outlive.
class MessageReporter final : public IMessageReporter
{
public:
    MessageReporter(void* connection, const ReporterOptions& options);
    MessageReporter(const MessageReporter&) = delete;
    MessageReporter& operator=(const MessageReporter&) = delete;
    ~MessageReporter() override { end(); }

    void onMessage(const MessageW& message, MessageW& reply, void*) override
    {
        report(message, reply, linkprotocol::kNoValue);
    }
    void onMessage(const MessageW& message, MessageW& reply, std::uint32_t value, void*) override
    {
        report(message, reply, value);
    }
    void onMessage(const DataMessage& message, DataMessage& reply, void*) override
    {
        report(message, reply, linkprotocol::kNoValue);
    }
    void onMessage(const DataMessage& message, DataMessage& reply, std::uint32_t value, void*) override
    {
        report(message, reply, value);
    }
    void onMessage(const ArrayMessage& message, ArrayMessage& reply, void*) override
    {
        report(message, reply, linkprotocol::kNoValue);
    }
    void onMessage(const ArrayMessage& message, ArrayMessage& reply, std::uint32_t value, void*) override
    {
        report(message, reply, value);
    }
    void onMessage(const HashMessageW& message, HashMessageW& reply, void*) override
    {
        report(message, reply, linkprotocol::kNoValue);
    }
    void onMessage(const HashMessageW& message, HashMessageW& reply, std::uint32_t value, void*) override
    {
        report(message, reply, value);
    }

    [[nodiscard]] long flush(unsigned long timeout, void* cancelEvent) noexcept override;
    [[nodiscard]] ReporterState getState() noexcept override { return m_line->getState(); }
    void stop() noexcept override { end(); }

private:
    template <class Message>
    void report(const Message& message, Message& reply, std::uint32_t value)
    {
        const InsideLibrary inside;
        if (dynamic_cast<const linkprotocol::Arrived<Message>*>(&message) != nullptr)
            return;
        if (m_line->getMode() == ReportMode::Queue)
            m_line->queue(message, value);
        else
            reply = static_cast<const Message&>(*m_line->send(message, value).wide);
    }
    void end() noexcept;

    std::shared_ptr<ReportLine> m_line;
    ThreadGroup m_threads;
};
