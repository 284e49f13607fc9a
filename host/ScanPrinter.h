#pragma once

#include <string>

#include "Console.h"

#include "core/win32/utils/scanengine/api.h"

struct IFtpFile;
struct IRegistryValue;

/// Prints and counts what a scan finds and what it cannot list.
class ScanPrinter : public INotifyHandler
{
public:
    explicit ScanPrinter(bool json) : m_json(json), m_begin(GetTickCount64()) {}

    void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override;
    /// Reports something that cannot be listed or read.
    void fail(const std::wstring& path, long code);
    [[nodiscard]] unsigned long long failures() const { return m_failures; }
    /// The counts, after all results.
    void finish(long code);

private:
    void print(const wchar_t* type, const std::wstring& path, const std::wstring& more) const;
    void printRemote(const std::wstring& path, const IFtpFile& file);
    void printValue(const std::wstring& path, IRegistryValue& value);
    void showProgress();
    [[nodiscard]] bool hasRegistry() const { return m_keys + m_values != 0; }
    [[nodiscard]] std::wstring counts() const;

    bool m_json;
    ULONGLONG m_begin;
    unsigned long long m_files = 0;
    unsigned long long m_folders = 0;
    unsigned long long m_bytes = 0;
    unsigned long long m_keys = 0;
    unsigned long long m_values = 0;
    unsigned long long m_failures = 0;
    ProgressLine m_progress;
};
