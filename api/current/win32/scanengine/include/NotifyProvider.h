#pragma once

#include <concepts>
#include <map>
#include <optional>
#include <vector>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "win32/scanengine/include/Notification.h"

inline constexpr char kNotifyProviderHeader[] = "win32\\scanengine\\include\\NotifyProvider.h";

/// One registration of a handler.
struct NotifyInfo
{
    INotifyHandler* handler; // owned by the caller; must outlive the registration
    std::uint32_t first;
    std::uint32_t second;
    std::uint64_t value;
    bool isReceived = false; ///< the path received it from its engine
};

/// The handlers of an engine or a path. Each handler's key is its first number. Safe on any thread. Failing
/// operations raise an Exception and change nothing.
struct INotifyProvider
{
    /// Instead of a number: the registration keeps its own.
    static constexpr std::uint32_t kKeepNumber = 0xFFFFFFFF;

    virtual ~INotifyProvider() = default;
    /// Calls every handler under `key`, in the order of registration. Checks `cancelEvent` (may be null)
    /// before each call and stops once it is signalled. No lock is held while handlers run.
    ///
    /// Returns 0, or 1223 when the event kept a handler from being called. Raises 1168 when nothing is
    /// registered under `key`, and anything a handler raises.
    virtual long notify(HANDLE cancelEvent, std::uint32_t value, std::uint32_t key,
                        const SharedPtr<ScanItem>& item) = 0;
    /// Copies every registration of `provider`, with the numbers `first` and `second` instead of its own
    /// unless these are kKeepNumber. A provider may copy its own. Raises 8.
    virtual void registerHandlers(const INotifyProvider& provider, std::uint32_t first,
                                  std::uint32_t second) = 0;
    /// Registers one handler under the key `first`. A handler registered twice is called twice. Raises 8.
    virtual void registerHandler(INotifyHandler& handler, std::uint32_t first, std::uint32_t second,
                                 std::uint64_t value) = 0;
    /// Removes all registrations. A handler that is running finishes.
    virtual void clearNotifyHandlers() noexcept = 0;
    /// The lock that guards the registrations. It is not recursive: a thread that holds it must not call the
    /// operations above.
    virtual void lockRead() const noexcept = 0;
    virtual void unlockRead() const noexcept = 0;
    virtual void lockWrite() const noexcept = 0;
    virtual void unlockWrite() const noexcept = 0;
    /// All registrations by key, then by order. Raises std::bad_alloc.
    [[nodiscard]] virtual std::vector<NotifyInfo, ProcessHeapAllocator<NotifyInfo>>
    getRegistrations() const = 0;
};

/// The library's provider, also for callers that collect handlers for several engines.
class NotifyProvider : public INotifyProvider
{
public:
    using Registrations = std::vector<NotifyInfo, ProcessHeapAllocator<NotifyInfo>>;

    long notify(HANDLE cancelEvent, std::uint32_t value, std::uint32_t key,
                const SharedPtr<ScanItem>& item) override
    {
        return notify([=] { return isSignalled(cancelEvent); }, value, key, item);
    }
    /// The same with a function that tells before each handler whether to cancel.
    template <std::predicate IsCancelled>
    long notify(IsCancelled&& isCancelled, std::uint32_t value, std::uint32_t key,
                const SharedPtr<ScanItem>& item)
    {
        const std::optional<List> registrations = find(key);
        if (!registrations)
            throw Exception(PLACE(kNotifyProviderHeader, "NotifyProvider::notify", __LINE__),
                            ERROR_NOT_FOUND);
        return callEach(**registrations, isCancelled, value, item);
    }
    /// Like notify, but nothing happens when no handler is registered under `key`.
    template <std::predicate IsCancelled>
    long notifyAny(IsCancelled&& isCancelled, std::uint32_t value, std::uint32_t key,
                   const SharedPtr<ScanItem>& item)
    {
        const std::optional<List> registrations = find(key);
        return registrations ? callEach(**registrations, isCancelled, value, item) : ERROR_SUCCESS;
    }

    void registerHandlers(const INotifyProvider& provider, std::uint32_t first, std::uint32_t second) override
    {
        change([&](Map& map) {
            for (NotifyInfo info : provider.getRegistrations()) {
                if (first != kKeepNumber)
                    info.first = first;
                if (second != kKeepNumber)
                    info.second = second;
                info.isReceived = false;
                append(map, info);
            }
        });
    }

    void registerHandler(INotifyHandler& handler, std::uint32_t first, std::uint32_t second,
                         std::uint64_t value) override
    {
        change([&](Map& map) { append(map, {&handler, first, second, value}); });
    }

    void clearNotifyHandlers() noexcept override
    {
        const WriteLocker locker(m_lock);
        m_map.clear();
        ++m_version;
    }

    /// Copies every registration of an engine in one step. They replace those received earlier from an
    /// engine; all other registrations stay. Raises 8.
    void receive(const INotifyProvider& engine)
    {
        change([&](Map& map) {
            Map own;
            for (const auto& [key, list] : map)
                for (const NotifyInfo& info : *list)
                    if (!info.isReceived)
                        append(own, info);
            for (NotifyInfo info : engine.getRegistrations()) {
                info.isReceived = true;
                append(own, info);
            }
            map.swap(own);
        });
    }

    void lockRead() const noexcept override { m_lock.lockRead(); }
    void unlockRead() const noexcept override { m_lock.unlockRead(); }
    void lockWrite() const noexcept override { m_lock.lockWrite(); }
    void unlockWrite() const noexcept override { m_lock.unlockWrite(); }

    [[nodiscard]] Registrations getRegistrations() const override
    {
        Registrations all;
        const ReadLocker locker(m_lock);
        for (const auto& [key, list] : m_map)
            all.insert(all.end(), list->begin(), list->end());
        return all;
    }

private:
    // A list never changes once it is in the map, so copying one means sharing it.
    using List = SharedPtr<Registrations>;
    using Map = std::map<std::uint32_t, List, std::less<>,
                         ProcessHeapAllocator<std::pair<const std::uint32_t, List>>>;

    [[nodiscard]] std::optional<List> find(std::uint32_t key) const
    {
        const ReadLocker locker(m_lock);
        const auto found = m_map.find(key);
        return found != m_map.end() ? std::optional<List>(found->second) : std::nullopt;
    }

    template <class IsCancelled>
    static long callEach(const Registrations& registrations, IsCancelled& isCancelled, std::uint32_t value,
                         const SharedPtr<ScanItem>& item)
    {
        for (const NotifyInfo& info : registrations) {
            if (isCancelled())
                return ERROR_CANCELLED;
            const OutsideLibrary outside;
            info.handler->onNotify(Notification(info.first, info.second, value, info.value), item);
        }
        return ERROR_SUCCESS;
    }

    static void append(Map& map, const NotifyInfo& info)
    {
        const auto found = map.find(info.first);
        List list =
            found != map.end() ? makeShared<Registrations>(*found->second) : makeShared<Registrations>();
        list->push_back(info);
        map.insert_or_assign(info.first, list);
    }

    // Changes a copy of the map and puts it in place; starts over when another thread was faster. So no
    // foreign provider is called while our lock is held.
    template <class Edit>
    void change(Edit&& edit)
    {
        primitives::placedStep(PLACE(kNotifyProviderHeader, "NotifyProvider::registerHandler", __LINE__),
                               [&] {
                                   for (;;) {
                                       Map map;
                                       std::uint64_t version = 0;
                                       {
                                           const ReadLocker locker(m_lock);
                                           map = m_map;
                                           version = m_version;
                                       }
                                       edit(map);
                                       const WriteLocker locker(m_lock);
                                       if (m_version != version)
                                           continue;
                                       m_map.swap(map);
                                       ++m_version;
                                       return;
                                   }
                               });
    }

    mutable ReadWriteLock m_lock;
    Map m_map;
    std::uint64_t m_version = 0;
};
