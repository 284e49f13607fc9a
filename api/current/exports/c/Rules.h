#pragma once

#include "core/win32/utils/scanengine/include/ScanValidator.h"
#include "exports/c/CFrames.h"

/// A validator of the C interface. It is not changed while a call uses it: readers take no lock then.
class Rules
{
public:
    /// As ScanValidator.
    Rules(const wchar_t* filters, const wchar_t* ignores)
        : m_validator(makeShared<IScanValidator, ScanValidator>(filters, ignores))
    {
    }

    /// One call that uses a validator; without one it accepts everything.
    class Use
    {
    public:
        /// Raises 6 for a handle that is not open; null is none.
        explicit Use(sysmaint_validator* handle);
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use();

        [[nodiscard]] const SharedPtr<IScanValidator>& get() const noexcept { return m_validator; }

    private:
        SharedPtr<Rules> m_rules;
        SharedPtr<IScanValidator> m_validator;
    };

    /// Lets `change` change the validator. Raises 170 while a call uses it, and what `change` raises.
    template <class Change>
    void change(Change&& change)
    {
        const WriteLocker locker(m_lock);
        if (m_uses != 0)
            raiseCode(ERROR_BUSY);
        change(*m_validator);
    }
    /// Lets `read` read it.
    template <class Read>
    void read(Read&& read)
    {
        const ReadLocker locker(m_lock);
        read(static_cast<const ScanValidator&>(*m_validator));
    }

private:
    ReadWriteLock m_lock;
    unsigned m_uses = 0; // calls that use it
    SharedPtr<IScanValidator> m_validator;
};

extern cframes::Table<sysmaint_validator, Rules> validators;
