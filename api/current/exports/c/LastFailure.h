#pragma once

#include <memory>

#include "core/win32/utils/objectmanager/include/Exception.h"

struct sysmaint_failure;

/// What each thread knows of the last function of the C interface that failed on it.
namespace lastfailure {
struct Record;

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
    bool m_wasInside = false;
    std::unique_ptr<Exception> m_caught;
};

/// The scope of one function of the C interface on its thread: exceptions that frames catch meanwhile are
/// kept, since the frames turn them into codes. One in the middle of another leaves that one's as they were.
class Scope : private Aside
{
public:
    Scope() noexcept;

    /// The function has failed with that code.
    void fail(const char* function, long code) noexcept;
};

/// Fills the caller's struct, apart from its size. Raises std::bad_alloc when there is no memory for the
/// text.
void describe(sysmaint_failure& failure);
} // namespace lastfailure
