#pragma once

#include "core/win32/utils/ftp/include/FtpConnection.h"
#include "win32/ftp/include/IFtpFile.h"
#include "win32/scanengine/include/ScanItem.h"

/// A file on an FTP server; see IFtpFile for the contract of its operations.
class FtpFile final : public ScanItem, public IFtpFile
{
public:
    FtpFile() noexcept : ScanItem(kFtpFileItem) {}
    FtpFile(const FtpConnectionPtr& connection, FtpLocation location, bool isLink,
            std::optional<unsigned long long> size);

    [[nodiscard]] const wchar_t* getPath() const override { return ScanItem::getPath(); }
    void setPath(const wchar_t* path, int expand) override;
    [[nodiscard]] bool isInterchangeable(const ScanItem& filed) const override;
    [[nodiscard]] bool isLink() const override { return m_isLink; }
    [[nodiscard]] unsigned long long getSize() const override;
    [[nodiscard]] int exists() const override;
    void download(const wchar_t* localPath, bool goOn, HANDLE cancelEvent) const override;
    void upload(const wchar_t* localPath, HANDLE cancelEvent) const override;
    void deleteItem(HANDLE cancelEvent) const override;
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;

private:
    [[nodiscard]] FtpConnection& connection() const;

    FtpConnectionPtr m_connection;
    FtpLocation m_location;
    bool m_isLink = false;
    std::optional<unsigned long long> m_size;
};
