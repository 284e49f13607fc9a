#pragma once

#include <vector>

#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"

/// Connects callers' load and dump requests to the object tables: on request, subscribes a table to the topic
/// "ObjectManager<class name>".
class ObjectRequestServer
{
public:
    [[nodiscard]] static ObjectRequestServer& getInstance() noexcept;

    /// Subscribes the table of a class to the topic for its requests, or unsubscribes it. Repeating a call
    /// has no effect. Returns 0, 87 for a null name, 1168 for a class without a table, 8, or the topic's
    /// code.
    long serve(const wchar_t* className, bool serve);
    /// Unsubscribes every table that is subscribed. Call this before the tables are destroyed.
    void stopAll() noexcept;

private:
    struct Served
    {
        AnyObjectTable* table;
        void* topic; // one opening
    };

    long start(AnyObjectTable& table);
    long stop(const AnyObjectTable& table);
    [[nodiscard]] std::vector<Served>::iterator find(const AnyObjectTable& table) noexcept;

    ReadWriteLock m_lock;
    std::vector<Served> m_served;
};
