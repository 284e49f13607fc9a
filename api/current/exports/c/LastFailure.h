#pragma once

#include <memory>

#include "core/win32/utils/objectmanager/include/Exception.h"

struct sysmaint_failure;

/// What each thread knows of the last function of the C interface that failed on it.
namespace lastfailure {
struct Record;

/// What is known of the function of the C interface that a thread is in.
struct Call
{
    bool isInside = false;             // in it, and in no callback of it
    std::unique_ptr<Exception> caught; // since it began
    void* cancelEvent = nullptr;       // the caller's
    long cancelCode = 0;               // why that has ended it, if not by being signalled
};

/// The scope of a callback: what the caller's code does meanwhile is no failure of the function that calls
/// it.
class Aside
{
public:
    Aside() noexcept;
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;
    ~Aside();

protected:
    explicit Aside(Record* record) noexcept;

    Record* m_record; // the thread's; null: it has none, or there is no memory for one

private:
    Call m_outer;
};

/// The scope of one function of the C interface on its thread: exceptions that frames catch meanwhile are
/// kept, since the frames turn them into codes. One in the middle of another leaves that one's as they were.
class Scope : private Aside
{
public:
    /// `cancelEvent` may be null. Whoever polls it meanwhile on this thread sees it signalled when it is no
    /// event, or is closed.
    explicit Scope(void* cancelEvent) noexcept;

    /// The code of the function: that of its event instead of 1223 when the event was none.
    [[nodiscard]] long codeOf(long code) const noexcept;
    /// The function has failed with that code.
    void fail(const char* function, long code) noexcept;
};

/// Fills the caller's struct, apart from its size. Raises std::bad_alloc when there is no memory for the
/// text.
void describe(sysmaint_failure& failure);
} // namespace lastfailure
