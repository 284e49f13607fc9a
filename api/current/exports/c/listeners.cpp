// The C interface: listeners and reporters.

#include "core/win32/utils/listeners/include/MessageListener.h"
#include "core/win32/utils/listeners/include/MessageReporter.h"

#include "exports/c/Topics.h"

using cframes::requireArguments;
using cframes::status;

static_assert(SYSMAINT_REPORT_QUEUE == static_cast<unsigned>(ReportMode::Queue) &&
              SYSMAINT_REPORT_SEND == static_cast<unsigned>(ReportMode::Send));

namespace {
constexpr char kHeader[] = "c\\sysmaint.h";

template <class Number, class Given>
void setUnlessZero(Number& number, Given given) noexcept
{
    if (given != 0)
        number = given;
}

ListenerOptions optionsOf(const sysmaint_listener_options* given)
{
    const auto copy = cframes::givenOrZero(given);
    requireArguments(copy.reserved == 0);
    ListenerOptions options;
    setUnlessZero(options.mostClients, copy.most_clients);
    setUnlessZero(options.timeout, copy.timeout);
    setUnlessZero(options.mostWaiting, copy.most_waiting);
    return options;
}

ReporterOptions optionsOf(const sysmaint_reporter_options* given)
{
    const auto copy = cframes::givenOrZero(given);
    requireArguments(copy.reserved == 0 && copy.mode <= SYSMAINT_REPORT_SEND);
    ReporterOptions options;
    options.mode = static_cast<ReportMode>(copy.mode);
    setUnlessZero(options.timeout, copy.timeout);
    setUnlessZero(options.mostWaiting, copy.most_waiting);
    return options;
}

/// A reporter in its topic, held by its handle, by the topic and by deliveries.
class Reporting
{
public:
    Reporting(const OpenTopic& topic, const std::shared_ptr<MessageReporter>& reporter)
        : m_reporter(*reporter), m_subscription(topic, reporter)
    {
    }

    void begin() { m_subscription.begin<IMessageHandler>(m_reporter); }
    void end(std::uint32_t timeout) const { m_subscription.end(timeout); }
    MessageReporter* operator->() const noexcept { return &m_reporter; }

private:
    MessageReporter& m_reporter;
    Subscription m_subscription;
};
cframes::Table<sysmaint_reporter, Reporting> reporters;
} // namespace

std::int32_t sysmaint_listener_create(const wchar_t* name, void* connection, sysmaint_topic* topic,
                                      const sysmaint_listener_options* options, void** listener)
{
    return status(__func__, [&] {
        const auto opening = topics().get(topic);
        requireArguments(listener != nullptr);
        const ListenerOptions how = optionsOf(options);
        const OwnOpening own(*opening); // whose number stays what it is
        cframes::opened(
            listener,
            boundary::createFrame(PLACE(kHeader, "sysmaint_listener_create", __LINE__), messageListeners(),
                                  name, [&] { return new MessageListener(connection, own.number(), how); }));
    });
}

std::int32_t sysmaint_listener_get_state(void* listener, sysmaint_listener_state* state)
{
    return status(__func__, [&] {
        const auto object = cframes::objectOf<MessageListenerPtr>(messageListeners(), listener);
        static_cast<void>(cframes::given(state));
        const ListenerState now = object->getState();
        cframes::store(state, sysmaint_listener_state{0, now.code, now.clients, 0, now.posted, now.sent,
                                                      now.disconnected});
    });
}

std::int32_t sysmaint_reporter_create(void* connection, sysmaint_topic* topic,
                                      const sysmaint_reporter_options* options, sysmaint_reporter** reporter)
{
    return status(__func__, [&] {
        const auto opening = topics().get(topic);
        requireArguments(reporter != nullptr);
        cframes::requireRunning();
        *reporter = cframes::addAndBegin(reporters,
                                         makeShared<Reporting>(*opening, std::make_shared<MessageReporter>(
                                                                             connection, optionsOf(options))),
                                         [](Reporting& made) { made.begin(); });
    });
}

std::int32_t sysmaint_reporter_flush(sysmaint_reporter* reporter, std::uint32_t timeout, void* cancel_event)
{
    return status(__func__, [&] {
        const auto object = reporters().get(reporter);
        return (*object)->flush(timeout, cancel_event);
    });
}

std::int32_t sysmaint_reporter_get_state(sysmaint_reporter* reporter, sysmaint_reporter_state* state)
{
    return status(__func__, [&] {
        const auto object = reporters().get(reporter);
        static_cast<void>(cframes::given(state));
        const ReporterState now = (*object)->getState();
        cframes::store(state, sysmaint_reporter_state{0, now.refusal, now.delivered, now.waiting, now.refused,
                                                      now.connection, 0});
    });
}

std::int32_t sysmaint_reporter_stop(sysmaint_reporter* reporter)
{
    return status(__func__, [&] {
        const auto object = reporters().get(reporter);
        (*object)->stop();
    });
}

std::int32_t sysmaint_reporter_close(sysmaint_reporter* reporter, std::uint32_t timeout)
{
    return status(__func__, [&] {
        cframes::requireRunning();
        const auto object = reporters().get(reporter);
        (*object)->stop();
        object->end(timeout);
        reporters().remove(reporter);
    });
}
