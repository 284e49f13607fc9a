#pragma once

#include "core/win32/utils/threadpool/include/THPWorkItem.h"

/// The context of one run: a small object on the worker's stack, bound to the running item.
class ThreadContext final : public IThreadContext
{
public:
    explicit ThreadContext(THPWorkItem& item) noexcept : m_item(item) {}

    [[nodiscard]] std::uint32_t getIDType() const override { return m_item.getIDType(); }
    [[nodiscard]] const wchar_t* getName() const override { return m_item.getName(); }
    [[nodiscard]] std::uint32_t getID() const override { return m_item.getID(); }
    [[nodiscard]] ITHPWorkItem& getWorkItem() const override { return m_item; }
    [[nodiscard]] void* getUserData() const override { return m_item.getUserData(); }
    [[nodiscard]] const HashMessageW& getArguments() const override { return m_item.getArguments(); }

private:
    THPWorkItem& m_item;
};
