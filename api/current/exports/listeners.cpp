// The exported functions of message listeners and reporters.

#include "core/win32/utils/listeners/api.h"
#include "core/win32/utils/listeners/include/MessageListener.h"
#include "core/win32/utils/listeners/include/MessageReporter.h"
#include "exports/Frames.h"

using boundary::createFrame;
using boundary::statusFrame;
using frames::requireArguments;

namespace {
constexpr char kListenersApi[] = "core\\win32\\utils\\listeners\\api.h";
} // namespace

void* CreateMessageListener(const wchar_t* name, void* connection, const TopicHandle& topic,
                            const ListenerOptions& options)
{
    // The frame turns it into 8. NOLINTBEGIN(bugprone-unhandled-exception-at-new)
    return createFrame(PLACE(kListenersApi, "CreateMessageListener", __LINE__), messageListeners(), name,
                       [&] { return new MessageListener(connection, topic.get(), options); });
    // NOLINTEND(bugprone-unhandled-exception-at-new)
}

void* OpenMessageListener(const wchar_t* name)
{
    return messageListeners().lookup(name);
}

int CloseMessageListener(void* listener)
{
    return messageListeners().close(listener, [](MessageListener& object) { object.close(); });
}

long ListenerGetNameByHandle(void* listener, const wchar_t** name)
{
    return statusFrame([&]() -> long {
        requireSuccess(PLACE(kListenersApi, "ListenerGetNameByHandle", __LINE__),
                       messageListeners().getName(listener, name));
        return ERROR_SUCCESS;
    });
}

long ListenerGetState(void* listener, ListenerState* state)
{
    return statusFrame(PLACE(kListenersApi, "ListenerGetState", __LINE__), messageListeners(), listener,
                       [&](MessageListener& object) {
                           requireArguments(PLACE(kListenersApi, "ListenerGetState", __LINE__),
                                            state != nullptr);
                           *state = object.getState();
                       });
}

IMessageReporter* DllGetMessageReporter(void* connection, const ReporterOptions& options)
{
    return frames::makeObject<IMessageReporter, MessageReporter>(connection, options);
}
