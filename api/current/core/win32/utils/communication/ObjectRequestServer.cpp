#include "core/win32/utils/communication/include/ObjectRequestServer.h"

#include <algorithm>
#include <string>

#include "core/win32/utils/communication/include/MessageTopic.h"

constexpr char kObjectRequestServerHeader[] =
    "core\\win32\\utils\\communication\\include\\ObjectRequestServer.h";

namespace {
Undestroyed<ObjectRequestServer> server;

std::wstring classNameOf(const AnyObjectTable& table)
{
    const std::string_view name = table.getClassName();
    return {name.begin(), name.end()};
}
} // namespace

ObjectRequestServer& ObjectRequestServer::getInstance() noexcept
{
    return server.get();
}

long ObjectRequestServer::serve(const wchar_t* className, bool serve)
{
    if (className == nullptr)
        return ERROR_INVALID_PARAMETER;
    for (AnyObjectTable* table = AnyObjectTable::getFirst(); table != nullptr; table = table->getNext()) {
        if (classNameOf(*table) == className)
            return serve ? start(*table) : stop(*table);
    }
    return ERROR_NOT_FOUND;
}

std::vector<ObjectRequestServer::Served>::iterator
ObjectRequestServer::find(const AnyObjectTable& table) noexcept
{
    return std::find_if(m_served.begin(), m_served.end(),
                        [&](const Served& served) { return served.table == &table; });
}

long ObjectRequestServer::start(AnyObjectTable& table)
{
    const char* place = PLACE(kObjectRequestServerHeader, "ObjectRequestServer::start", __LINE__);
    const WriteLocker locker(m_lock);
    if (find(table) != m_served.end())
        return ERROR_SUCCESS;
    m_served.reserve(m_served.size() + 1);
    void* topic = createTopic(place, (L"ObjectManager<" + classNameOf(table) + L">").c_str());
    if (topic == INVALID_HANDLE_VALUE)
        return lastError();
    const long code =
        withTopic(place, topic, [&](MessageTopic& object) { object.subscribe(table.getRequestHandler()); });
    if (code == ERROR_SUCCESS)
        m_served.push_back({&table, topic});
    else
        closeTopic(topic);
    return code;
}

// Runs without the lock, since it waits for requests that are being answered.
long ObjectRequestServer::stop(const AnyObjectTable& table)
{
    Served served{};
    {
        const WriteLocker locker(m_lock);
        const auto found = find(table);
        if (found == m_served.end())
            return ERROR_SUCCESS;
        served = *found;
        m_served.erase(found);
    }
    const long code = withTopic(
        PLACE(kObjectRequestServerHeader, "ObjectRequestServer::stop", __LINE__), served.topic,
        [&](MessageTopic& object) { object.unsubscribe(served.table->getRequestHandler(), INFINITE); });
    closeTopic(served.topic);
    return code;
}

void ObjectRequestServer::stopAll() noexcept
{
    for (AnyObjectTable* table = AnyObjectTable::getFirst(); table != nullptr; table = table->getNext())
        boundary::statusFrame([&] { return stop(*table); });
    const WriteLocker locker(m_lock);
    m_served = {};
}
