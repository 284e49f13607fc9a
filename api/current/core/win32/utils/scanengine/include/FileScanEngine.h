#pragma once

#include "core/win32/utils/scanengine/include/ScanEngine.h"

/// The engine that walks folders.
class FileScanEngine final : public IFileScanEngine, private ScanEngine
{
public:
    static constexpr const char* kClassName = "FileScanEngine";

    explicit FileScanEngine(const wchar_t* name) : ScanEngine(name) {}

    void addPath(const wchar_t* path, int expand) override;
    long scan(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
              const ScanOptions& options) override;
    void registerHandlers(const INotifyProvider& provider, std::uint32_t first, std::uint32_t second) override
    {
        m_provider.registerHandlers(provider, first, second);
    }
    void registerHandler(INotifyHandler& handler, std::uint32_t first, std::uint32_t second,
                         std::uint64_t value) override
    {
        m_provider.registerHandler(handler, first, second, value);
    }
    void clear() override { clearRoots(); }
    void clearNotifyHandlers() override;
};

/// The table of all file scan engines.
[[nodiscard]] ObjectManager<SharedPtr<FileScanEngine>>& fileScanEngines() noexcept;
