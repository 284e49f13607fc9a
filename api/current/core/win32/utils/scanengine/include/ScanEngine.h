#pragma once

#include <string>
#include <vector>

#include "core/win32/utils/scanengine/include/ScanPath.h"
#include "win32/scanengine/include/IScanEngine.h"

/// What the engines share: the list of root paths, the handlers, and the walk over the roots. The concrete
/// engine creates the roots. Safe on any thread; several scans may run at once.
class ScanEngine
{
public:
    ScanEngine(const ScanEngine&) = delete;
    ScanEngine& operator=(const ScanEngine&) = delete;

protected:
    explicit ScanEngine(const wchar_t* name) : m_name(name) {}
    ~ScanEngine() = default; // engines are destroyed through their interface

    /// Registers a root under the engine's name and its identifier, or opens the one that the engine already
    /// has, and appends it to the list. Raises a bare 183 when another kind of item has the name.
    void appendRoot(const SharedPtr<ScanItem>& root);

    /// Walks every root in the order added, with the engine's handlers. Returns the result of the last one,
    /// or 1223 as soon as `cancelEvent` is seen signalled. `place` is used for a root that cannot be looked
    /// up.
    long scanRoots(const char* place, HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                   const ScanOptions& options);
    void clearRoots();
    /// Removes the registrations of the engine and of every root.
    void clearHandlers();

    NotifyProvider m_provider;

private:
    struct Root
    {
        ScanItemHandle handle;
        SharedPtr<ScanItem> item; // the handle's object, to recognise it: numbers are reused
    };
    struct RootCopy
    {
        void* handle;
        SharedPtr<ScanItem> item;
    };
    [[nodiscard]] std::vector<RootCopy> copyRoots() const;

    std::wstring m_name;
    mutable ReadWriteLock m_lock;
    std::vector<Root> m_roots;
};

/// The operations that all engines share; `Interface` is the engine's.
template <class Interface>
class ScanEngineOf : public Interface, protected ScanEngine
{
public:
    long scan(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
              const ScanOptions& options) final
    {
        const InsideLibrary inside;
        return scanRoots(scanPlace(), cancelEvent, validator, options);
    }
    void registerHandlers(const INotifyProvider& provider, std::uint32_t first, std::uint32_t second) final
    {
        const InsideLibrary inside;
        m_provider.registerHandlers(provider, first, second);
    }
    void registerHandler(INotifyHandler& handler, std::uint32_t first, std::uint32_t second,
                         std::uint64_t value) final
    {
        const InsideLibrary inside;
        m_provider.registerHandler(handler, first, second, value);
    }
    void clear() final
    {
        const InsideLibrary inside;
        clearRoots();
    }
    void clearNotifyHandlers() final
    {
        const InsideLibrary inside;
        clearHandlers();
    }

protected:
    using ScanEngine::ScanEngine;
    /// The place text for a root that cannot be looked up.
    [[nodiscard]] virtual const char* scanPlace() const noexcept = 0;
};
