#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "core/win32/utils/objectmanager/include/ObjectTable.h"

class ComLibrary;

/// One named restore point for a change, and the switch of System Restore. See the exported functions. Its
/// operations may be called from any thread.
class RestoreManager
{
public:
    static constexpr const char* kClassName = "RestoreManager";

    /// `name` is not null. Raises std::bad_alloc.
    explicit RestoreManager(const wchar_t* name);
    RestoreManager(const RestoreManager&) = delete;
    RestoreManager& operator=(const RestoreManager&) = delete;
    virtual ~RestoreManager() = default;

    // All raise an Exception, or a bare code.

    void createRestorePoint();
    void deleteRestorePoint(std::int64_t sequenceNumber);
    static void enableSystemRestore(const wchar_t* drive);
    static void isSystemRestoreEnabled(int* enabled);
    [[nodiscard]] std::int64_t getRestorePointId() const noexcept { return m_sequenceNumber; }
    void copyRestorePointName(wchar_t* buffer, std::uint64_t* size) const;

private:
    std::wstring m_description;
    std::atomic<std::int64_t> m_sequenceNumber{0}; // of the restore point that it created; 0: none
};

/// The table of all restore managers.
extern ObjectTable<SharedPtr<RestoreManager>> restoreManagers;
