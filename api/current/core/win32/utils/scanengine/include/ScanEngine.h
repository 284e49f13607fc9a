#pragma once

#include <string>
#include <vector>

#include "core/win32/utils/scanengine/include/ScanPath.h"
#include "win32/scanengine/include/IScanEngine.h"

/// What the engines share: the list of root paths, the handlers, and the walk over the roots. The concrete
/// engine makes the roots. Safe for any thread; several scans may run at once.
class ScanEngine
{
public:
    ScanEngine(const ScanEngine&) = delete;
    ScanEngine& operator=(const ScanEngine&) = delete;

protected:
    explicit ScanEngine(const wchar_t* name) : m_name(name) {}
    ~ScanEngine() = default;

    /// Files the root that `make` returns under the engine's name and `identifier`, or opens it when the
    /// engine has it already, and appends it to the list. Raises a bare 183 when the name is taken by another
    /// kind of item.
    template <class Make>
    void appendRoot(const wchar_t* identifier, Make&& make)
    {
        const std::wstring key = scanItemKey(m_name.c_str(), identifier);
        ScanItemHandle handle(scanItems().openOrCreate(key.c_str(), make));
        SharedPtr<ScanItem> item;
        primitives::requireSuccess(scanItems().get(handle.get(), item));
        if (dynamic_cast<ScanPath*>(item.get()) == nullptr)
            throw static_cast<long>(ERROR_ALREADY_EXISTS);
        const WriteLocker locker(m_lock);
        m_roots.push_back({std::move(handle), item});
    }

    /// Walks every root in the order added, with the engine's handlers. Returns the result of the last one,
    /// or 1223 as soon as `cancelEvent` was seen signalled. `place` is for a root that cannot be looked up.
    long scanRoots(const char* place, HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                   const ScanOptions& options);
    void clearRoots();
    /// Drops the registrations of the engine and of every root.
    void clearHandlers();

    NotifyProvider m_provider;

private:
    struct Root
    {
        ScanItemHandle handle;
        SharedPtr<ScanItem> item; // the handle's object, to know it by: numbers are reused
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
