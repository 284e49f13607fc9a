#pragma once

#include "core/win32/utils/objectmanager/include/ObjectManager.h"
#include "core/win32/utils/objectmanager/include/Undestroyed.h"

/// An object table of any family, as an element of the list that unloading and request serving use.
class AnyObjectTable
{
public:
    AnyObjectTable(const AnyObjectTable&) = delete;
    AnyObjectTable& operator=(const AnyObjectTable&) = delete;

    /// The name of the class whose objects the table holds; plain ASCII.
    [[nodiscard]] const char* getClassName() const noexcept { return m_className; }
    /// Answers the load and dump requests for the table's objects.
    [[nodiscard]] virtual IMessageHandler& getRequestHandler() noexcept = 0;
    /// The table that is destroyed after this one; null at the end.
    [[nodiscard]] AnyObjectTable* getNext() const noexcept { return m_next; }
    /// The table that is destroyed first.
    [[nodiscard]] static AnyObjectTable* getFirst() noexcept { return s_first; }

    /// Destroys all tables and every object that is still open. For unloading the library while the process
    /// continues.
    static void destroyAll() noexcept
    {
        while (s_first != nullptr)
            std::exchange(s_first, s_first->m_next)->destroy();
    }

protected:
    AnyObjectTable(const char* className, unsigned rank) noexcept : m_className(className), m_rank(rank)
    {
        AnyObjectTable** at = &s_first;
        while (*at != nullptr && (*at)->m_rank < rank)
            at = &(*at)->m_next;
        m_next = std::exchange(*at, this);
    }
    ~AnyObjectTable() = default;

private:
    virtual void destroy() noexcept = 0;

    static constinit inline AnyObjectTable* s_first = nullptr; // initialised before any table is built

    const char* m_className;
    unsigned m_rank;
    AnyObjectTable* m_next;
};

/// The definition of a family's object table, as one line beside the class:
///
///     ObjectTable<SharedPtr<Logger>> loggers(20);
///
/// Tables are destroyed in the order of their ranks, lowest first: a table whose objects hold handles of
/// another table needs a lower rank than that one. Message topics are the first (10), thread pools the last
/// (90).
///
/// A table is built when the library is loaded, and destroyed only by destroyAll. When a process ends, its
/// other threads are already gone, perhaps in the middle of a change, and the system reclaims everything
/// anyway.
template <class ObjectPtr>
class ObjectTable final : public AnyObjectTable
{
public:
    explicit ObjectTable(unsigned rank) : AnyObjectTable(ObjectManager<ObjectPtr>::Object::kClassName, rank)
    {
    }

    [[nodiscard]] ObjectManager<ObjectPtr>& operator()() noexcept { return m_table.get(); }
    [[nodiscard]] IMessageHandler& getRequestHandler() noexcept override { return m_table.get(); }

private:
    void destroy() noexcept override { m_table.destroy(); }

    Undestroyed<ObjectManager<ObjectPtr>> m_table;
};
