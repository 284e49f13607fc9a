#pragma once

#include "core/win32/utils/scanengine/include/ScanEngine.h"

/// The engine that walks registry keys.
class RegistryScanEngine final : public ScanEngineOf<IRegistryScanEngine>
{
public:
    static constexpr const char* kClassName = "RegistryScanEngine";

    /// Without a handle. Its roots are registered under its name all the same, so it generates one.
    RegistryScanEngine();
    explicit RegistryScanEngine(const wchar_t* name) : ScanEngineOf(name) {}
    void addPath(HKEY root, const wchar_t* path, unsigned long options) override;

private:
    [[nodiscard]] const char* scanPlace() const noexcept override;
};

/// The table of all registry scan engines.
extern ObjectTable<SharedPtr<RegistryScanEngine>> registryScanEngines;
