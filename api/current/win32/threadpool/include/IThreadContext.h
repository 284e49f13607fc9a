#pragma once

#include "win32/communication/include/HashMessage.h"
#include "win32/threadpool/include/ITHPWorkItem.h"

/// What running work can ask about itself. Valid during the run, on its thread.
struct IThreadContext
{
    virtual ~IThreadContext() = default;
    /// The key that the work was queued under: its type (ITHPIdentifier::kName or kNumber), its name (null
    /// for a number) and its number (0 for a name).
    [[nodiscard]] virtual std::uint32_t getIDType() const = 0;
    [[nodiscard]] virtual const wchar_t* getName() const = 0;
    [[nodiscard]] virtual std::uint32_t getID() const = 0;
    /// The pool's own item for this work.
    [[nodiscard]] virtual ITHPWorkItem& getWorkItem() const = 0;
    /// For an object what its getUserData returns; for a function its arguments, a HashMessageW*.
    [[nodiscard]] virtual void* getUserData() const = 0;
    /// The work's own copy of the arguments it was queued with.
    [[nodiscard]] virtual const HashMessageW& getArguments() const = 0;
};

/// Work as a function. The rules of ITHPWorkItem::operator() apply.
using THPWorkFunction = long (*)(IThreadContext& context, void* cancelEvent);
