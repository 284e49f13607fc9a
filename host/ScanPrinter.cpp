#include "ScanPrinter.h"

#include "RegistryData.h"

#include "core/win32/utils/ftp/api.h"

void ScanPrinter::onNotify(const Notification& notification, const SharedPtr<ScanItem>& item)
{
    const std::wstring path = item->getPath();
    if (notification.getFirst() == kListingFailed) {
        fail(path, static_cast<long>(notification.getValue()));
    } else if (auto* value = dynamic_cast<IRegistryValue*>(item.get()); value != nullptr) {
        printValue(path, *value);
    } else if (item->getType() == kRegistryKeyItem) {
        ++m_keys;
        print(L"key", path, L"");
    } else if (const auto* file = dynamic_cast<const IFile*>(item.get()); file != nullptr) {
        const unsigned long long size = file->getSize();
        ++m_files;
        m_bytes += size;
        print(L"file", path, LR"(,"bytes":)" + std::to_wstring(size));
    } else if (const auto* remote = dynamic_cast<const IFtpFile*>(item.get()); remote != nullptr) {
        printRemote(path, *remote);
    } else {
        ++m_folders;
        print(L"folder", path, L"");
    }
    if (!results().isOpen())
        throw Exception("File: host\\ScanPrinter.cpp\nFunction: ScanPrinter::onNotify\nLine: 0",
                        ERROR_BROKEN_PIPE);
    showProgress();
}

void ScanPrinter::printRemote(const std::wstring& path, const IFtpFile& file)
{
    unsigned long long size = 0;
    try {
        size = file.getSize();
    } catch (const Exception& failure) {
        if (!file.isLink()) { // which may lead to a folder, or nowhere
            fail(path, static_cast<long>(failure.getCode()));
            return;
        }
    }
    ++m_files;
    m_bytes += size;
    print(L"file", path, LR"(,"bytes":)" + std::to_wstring(size));
}

void ScanPrinter::fail(const std::wstring& path, long code)
{
    ++m_failures;
    if (m_json) {
        print(L"error", path, LR"(,"code":)" + std::to_wstring(code));
        return;
    }
    m_progress.clear();
    messages().writeLine(L"scan: " + printable(path) + L": " + formatCode(code));
}

void ScanPrinter::finish(long code)
{
    m_progress.clear();
    if (m_json)
        results().writeLine(
            LR"({"type":"summary","files":)" + std::to_wstring(m_files) + LR"(,"folders":)" +
            std::to_wstring(m_folders) + LR"(,"bytes":)" + std::to_wstring(m_bytes) +
            (hasRegistry()
                 ? LR"(,"keys":)" + std::to_wstring(m_keys) + LR"(,"values":)" + std::to_wstring(m_values)
                 : L"") +
            LR"(,"errors":)" + std::to_wstring(m_failures) + LR"(,"code":)" + std::to_wstring(code) + L"}");
    results().flush(); // so the counts follow what they count
    messages().writeLine((code == ERROR_CANCELLED ? L"cancelled; found so far: " : L"found ") + counts() +
                         (m_failures != 0 ? L", " + formatCount(m_failures) + L" could not be read" : L""));
}

/// One item on one line; `more` is added in JSON.
void ScanPrinter::print(const wchar_t* type, const std::wstring& path, const std::wstring& more) const
{
    if (m_json)
        results().writeLine(LR"({"type":")" + std::wstring(type) + LR"(","path":)" + jsonString(path) + more +
                            L"}");
    else
        results().writeLine(printable(path) +
                            (more.empty() ? (path.starts_with(L"ftp://") ? L"/" : L"\\") : L""));
}

void ScanPrinter::printValue(const std::wstring& path, IRegistryValue& value)
{
    RegistryData data;
    try {
        data = readData(value);
    } catch (const Exception& failure) {
        if (failure.getCode() != ERROR_FILE_NOT_FOUND) // gone since it was found
            fail(path, static_cast<long>(failure.getCode()));
        return;
    }
    ++m_values;
    if (!m_json) {
        results().writeLine(printable(path) + L" = " + typeName(data.type) + L" " + shortData(data));
        return;
    }
    const std::wstring name = value.getName();
    const std::wstring key = path.substr(0, path.size() - name.size() - 1);
    results().writeLine(LR"({"type":"value","key":)" + jsonString(key) + LR"(,"name":)" + jsonString(name) +
                        LR"(,"valueType":)" + jsonString(typeName(data.type)) + L"," + jsonData(data) + L"}");
}

/// Results on the same terminal show the progress by themselves.
void ScanPrinter::showProgress()
{
    if (results().isTerminal() || !m_progress.isDue())
        return;
    const ULONGLONG elapsed = GetTickCount64() - m_begin;
    const unsigned long long found = m_files + m_folders + m_keys + m_values;
    m_progress.show(counts() + L", " + formatCount(found * 1000 / (elapsed != 0 ? elapsed : 1)) +
                    L" a second");
}

std::wstring ScanPrinter::counts() const
{
    std::wstring text =
        formatCount(m_files) + L" files, " + formatCount(m_folders) + L" folders, " + formatBytes(m_bytes);
    if (hasRegistry())
        text += L", " + formatCount(m_keys) + L" keys, " + formatCount(m_values) + L" values";
    return text;
}
