#pragma once

#include <cstdint>

#include "core/win32/utils/objectmanager/include/Exception.h"

#define THP_WORK_ITEM_INTERFACE "win32\\threadpool\\include\\ITHPWorkItem.h"

struct IThreadContext;

/// Work as an object. Derive from it, override operator() and queue it with THPQueueWork. The object must
/// live until its run has ended.
///
/// The pool itself calls only operator() of a caller's object; the work's keys are those that it was queued
/// under. getUserData is called when the work asks its context for the user data. Operations that are not
/// overridden raise an Exception with 775.
struct ITHPWorkItem
{
    /// Where work goes when the category has reached its maximum of threads and none is free. Otherwise work
    /// begins at once with all three options.
    enum class ScheduleOption : std::uint32_t
    {
        AtEnd = 0,     ///< behind all queued work
        AtFront = 1,   ///< before all queued work: the last item queued this way begins first
        OnlyIfFree = 2 ///< nowhere: it is refused with 1003
    };

    /// Raised by operations that should have been overridden.
    static constexpr unsigned long kNotOverridden = 775;

    virtual ~ITHPWorkItem() = default;
    /// ITHPIdentifier::kName or kNumber.
    [[nodiscard]] virtual std::uint32_t getIDType() const
    {
        throw Exception(PLACE(THP_WORK_ITEM_INTERFACE, "ITHPWorkItem::getIDType", __LINE__), kNotOverridden);
    }
    [[nodiscard]] virtual const wchar_t* getName() const
    {
        throw Exception(PLACE(THP_WORK_ITEM_INTERFACE, "ITHPWorkItem::getName", __LINE__), kNotOverridden);
    }
    [[nodiscard]] virtual std::uint32_t getID() const
    {
        throw Exception(PLACE(THP_WORK_ITEM_INTERFACE, "ITHPWorkItem::getID", __LINE__), kNotOverridden);
    }
    [[nodiscard]] virtual void* getUserData() const
    {
        throw Exception(PLACE(THP_WORK_ITEM_INTERFACE, "ITHPWorkItem::getUserData", __LINE__),
                        kNotOverridden);
    }
    /// Does the work on a thread of the pool. `cancelEvent` is signalled when the work should stop: poll it
    /// with a wait of 0 milliseconds and return early. It belongs to the thread: do not close it, and do not
    /// use it after the return.
    ///
    /// Returns 0 or a Win32 code, which THPGetWorkResult reports. Anything it raises ends the work: with the
    /// code of an Exception or a long, 8 for missing memory, 574 for anything else.
    virtual long operator()(IThreadContext&, void* /*cancelEvent*/)
    {
        throw Exception(PLACE(THP_WORK_ITEM_INTERFACE, "ITHPWorkItem::operator()", __LINE__), kNotOverridden);
    }
};
