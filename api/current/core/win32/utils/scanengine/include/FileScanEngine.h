#pragma once

#include "core/win32/utils/scanengine/include/ScanEngine.h"

/// The engine that walks folders.
class FileScanEngine final : public ScanEngineOf<IFileScanEngine>
{
public:
    static constexpr const char* kClassName = "FileScanEngine";

    explicit FileScanEngine(const wchar_t* name) : ScanEngineOf(name) {}
    void addPath(const wchar_t* path, int expand) override;

private:
    [[nodiscard]] const char* scanPlace() const noexcept override;
};

/// The table of all file scan engines.
extern ObjectTable<SharedPtr<FileScanEngine>> fileScanEngines;
