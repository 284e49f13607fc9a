// The exported functions of the lookup client.

#include "core/win32/utils/lookup/api.h"
#include "core/win32/utils/lookup/include/HVKQueue.h"
#include "exports/Frames.h"

using boundary::createFrame;
using boundary::statusFrame;
using frames::requireArguments;

namespace {
constexpr char kLookupApi[] = "core\\win32\\utils\\lookup\\api.h";
} // namespace

void* CreateHVK(const wchar_t* name, unsigned long value)
{
    // The frame turns it into 8. NOLINTBEGIN(bugprone-unhandled-exception-at-new)
    return createFrame(PLACE(kLookupApi, "CreateHVK", __LINE__), hvkQueues(), name,
                       [&] { return new HVKQueue(name, value); });
    // NOLINTEND(bugprone-unhandled-exception-at-new)
}

void* OpenHVK(const wchar_t* name)
{
    return hvkQueues().lookup(name);
}

int CloseHVK(void* hvk)
{
    return closeHVKQueue(hvk);
}

long HVKSetServer(void* hvk, const wchar_t* host, unsigned short port, unsigned long answerTimeout)
{
    return statusFrame(PLACE(kLookupApi, "HVKSetServer", __LINE__), hvkQueues(), hvk, [&](HVKQueue& queue) {
        requireArguments(PLACE(kLookupApi, "HVKSetServer", __LINE__),
                         host != nullptr && *host != L'\0' && port != 0);
        queue.setServer({host, port, answerTimeout});
    });
}

long HVKAddPath(void* hvk, const wchar_t* path)
{
    return HVKAddPath(hvk, path, 0);
}

long HVKAddPath(void* hvk, const wchar_t* path, long priority)
{
    return statusFrame(PLACE(kLookupApi, "HVKAddPath", __LINE__), hvkQueues(), hvk,
                       [&](HVKQueue& queue) { queue.addPath(path, priority); });
}

long HVKCancel(void* hvk)
{
    return statusFrame(PLACE(kLookupApi, "HVKCancel", __LINE__), hvkQueues(), hvk,
                       [](HVKQueue& queue) { queue.cancel(); });
}

long HVKWait(void* hvk, unsigned long timeout, void* cancelEvent)
{
    return statusFrame(PLACE(kLookupApi, "HVKWait", __LINE__), hvkQueues(), hvk, [&](HVKQueue& queue) {
        return queue.wait(WaitLimits::ofEvent(timeout, cancelEvent));
    });
}

long HVKTakeUnanswered(void* hvk, HVKUnanswered visit, void* context)
{
    return statusFrame(
        PLACE(kLookupApi, "HVKTakeUnanswered", __LINE__), hvkQueues(), hvk, [&](HVKQueue& queue) {
            requireArguments(PLACE(kLookupApi, "HVKTakeUnanswered", __LINE__), visit != nullptr);
            for (const auto& [path, code] : queue.takeUnanswered()) {
                const OutsideLibrary outside;
                visit(path.c_str(), code, context);
            }
        });
}
