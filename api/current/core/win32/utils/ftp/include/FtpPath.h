#pragma once

#include "core/win32/utils/ftp/include/FtpConnection.h"
#include "core/win32/utils/scanengine/include/ScanPath.h"

/// A folder on an FTP server that can be walked; see IScanPath. It is listed completely before anything in it
/// is reported, so handlers may use the server meanwhile.
class FtpPath final : public ScanItem, public ScanPath
{
public:
    /// A folder of the walk, by what the server calls it, and those that it was reached through.
    struct Ancestry
    {
        [[nodiscard]] bool has(const std::string& wanted) const;

        std::string unique; // empty: nothing
        std::shared_ptr<const Ancestry> above;
    };
    using AncestryPtr = std::shared_ptr<const Ancestry>;

    FtpPath(const FtpConnectionPtr& connection, FtpLocation location, std::uint32_t level,
            AncestryPtr ancestry = nullptr);

    void setPath(const wchar_t* path, int expand) override;
    [[nodiscard]] bool isInterchangeable(const ScanItem& filed) const override;
    [[nodiscard]] int exists() const override;
    long load(unsigned long code, IInputByteStream& stream) override;

private:
    void list(Walk& walk) override;
    [[nodiscard]] const char* scanPlace() const noexcept override;
    [[nodiscard]] FtpConnection& connection() const;
    [[nodiscard]] FtpListing requireListing(Walk& walk, AncestryPtr& ancestry);
    void reportFolder(Walk& walk, const FtpEntry& entry, FtpLocation location,
                      const AncestryPtr& ancestry) const;

    FtpConnectionPtr m_connection;
    FtpLocation m_location;
    AncestryPtr m_ancestry; // what is known of this folder and those above; null: nothing
};
