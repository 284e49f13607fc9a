#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/scanengine/include/ScanItems.h"
#include "win32/scanengine/include/IScanPath.h"

/// The walk shared by folders and registry keys: breadth-first, one container at a time, with waiting
/// containers registered in the table of scan items. The concrete class lists one container.
class ScanPath : public IScanPath
{
public:
    long scan(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
              const ScanOptions& options) final;
    [[nodiscard]] INotifyProvider& getNotifyProvider() noexcept final { return m_provider; }
    [[nodiscard]] std::uint32_t getLevel() const noexcept final { return m_level; }
    long getResult(std::uint32_t key, std::size_t index, SharedPtr<ScanItem>& item) const final;
    [[nodiscard]] int hasSubfolders(HANDLE cancelEvent) final;
    long getValues(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator) final;

    /// The walk of scan, without its first poll. `self` is this path as an item, for the handlers; null when
    /// nobody has one. `firstFailure` receives the first container further down that cannot be listed, unless
    /// it already holds one.
    long scanOn(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator, const ScanOptions& options,
                const SharedPtr<ScanItem>* self, std::optional<Exception>& firstFailure);

    /// Adds an engine's handlers to the path's own, replacing those received earlier from an engine.
    void receiveHandlers(const INotifyProvider& provider) { m_provider.receive(provider); }

protected:
    /// A container that was looked up by its handle.
    struct TakenContainer
    {
        long code;
        SharedPtr<ScanItem> item;
    };

    /// What a listing is for.
    enum class Purpose
    {
        Scan,
        FindContainer, ///< ends with the first container that is no link
        KeepLeaves     ///< the leaves become results, and no handler is called
    };

    /// The state of one scan, discarded afterwards.
    struct Walk
    {
        HANDLE cancelEvent;
        const SharedPtr<IScanValidator>& validator;
        const ScanOptions& options;
        ScanPath& root;
        std::vector<SharedPtr<ScanItem>> found; // containers of the current listing that are to be listed too
        std::deque<ScanItemHandle> queue;       // waiting containers, in order
        std::deque<TakenContainer> next;        // the first of them, already looked up
        HeldFolders held = {};                  // for the container being listed and those above it
        std::vector<std::byte> listed = {};     // buffer for what the system lists at once
        bool cancelled = false;
        Purpose purpose = Purpose::Scan;
        bool hasContainer = false; // which was looked for

        /// Polls the event, unless it has already been seen signalled.
        bool poll() noexcept
        {
            cancelled = cancelled || isCancelled(cancelEvent);
            return cancelled;
        }
    };

    /// Raised by `list` for a container that the system did not let us list completely.
    struct ListingFailure
    {
        Exception reason;
        bool brokeOff = false; ///< after it had begun
    };

    explicit ScanPath(std::uint32_t level) : m_level(level) {}

    /// Lists this container: creates an item for each entry and passes it to report, until the walk is
    /// cancelled.
    virtual void list(Walk& walk) = 0;
    /// Whether this container, found by a walk, is a link.
    [[nodiscard]] virtual bool isFoundLink() const { return false; }
    /// Whether its leaves are values.
    [[nodiscard]] virtual bool hasValues() const noexcept { return false; }
    /// The place text for a waiting container that is no longer there.
    [[nodiscard]] virtual const char* scanPlace() const noexcept = 0;

    /// Offers a found item to the validator, the handlers and the results.
    static void reportLeaf(Walk& walk, const SharedPtr<ScanItem>& item)
    {
        if (walk.purpose != Purpose::FindContainer)
            report(walk, item, kLeafFound);
    }
    /// The same for a container. It then waits for its turn to be listed, unless it is a link, is left
    /// unlisted for another reason, or is too deep.
    static void reportContainer(Walk& walk, const SharedPtr<ScanItem>& item, std::uint32_t level,
                                bool isLeftUnlisted);

private:
    using Results = std::vector<SharedPtr<ScanItem>>;

    static bool report(Walk& walk, const SharedPtr<ScanItem>& item, std::uint32_t key);
    static void listInto(ScanPath& path, Walk& walk);
    static void reportFailure(Walk& walk, const SharedPtr<ScanItem>& item, const ListingFailure& failure);
    static void enqueueFound(Walk& walk);
    static bool lookUpNext(Walk& walk);
    void clearResults();

    std::uint32_t m_level;
    NotifyProvider m_provider;
    mutable ReadWriteLock m_resultsLock;
    Results m_containers;
    Results m_leaves;
};
