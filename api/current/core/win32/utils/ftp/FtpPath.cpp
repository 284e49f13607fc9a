#include "core/win32/utils/ftp/include/FtpPath.h"

#include "core/win32/utils/ftp/include/FtpFile.h"
#include "core/win32/utils/objectmanager/include/LibraryCall.h"

constexpr char kFtpPathHeader[] = "core\\win32\\utils\\ftp\\include\\FtpPath.h";

FtpPath::FtpPath(const FtpConnectionPtr& connection, FtpLocation location, std::uint32_t level)
    : ScanItem(kDirectoryItem, CachedPath(HeapStringW(connection.get()->urlOf(location.text).c_str()))),
      ScanPath(level), m_connection(connection), m_location(std::move(location))
{
}

FtpConnection& FtpPath::connection() const
{
    if (!m_connection)
        raiseCode(ERROR_NOT_CONNECTED);
    return *m_connection.get();
}

// What somebody else calls it belongs to no server.
void FtpPath::setPath(const wchar_t* path, int expand)
{
    const InsideLibrary inside;
    m_connection = FtpConnectionPtr();
    ScanItem::setPath(path, expand);
}

long FtpPath::load(unsigned long code, IInputByteStream& stream)
{
    const InsideLibrary inside;
    m_connection = FtpConnectionPtr();
    return ScanItem::load(code, stream);
}

bool FtpPath::isInterchangeable(const ScanItem& filed) const
{
    const InsideLibrary inside;
    const auto* other = dynamic_cast<const FtpPath*>(&filed);
    if (other == nullptr || !m_connection || !other->m_connection || getLevel() != other->getLevel())
        return false;
    return m_location.bytes == other->m_location.bytes &&
           m_connection.get()->getServer() == other->m_connection.get()->getServer();
}

int FtpPath::exists() const
{
    const InsideLibrary inside;
    bool result = false;
    primitives::placedStep(PLACE(kFtpPathHeader, "FtpPath::exists", __LINE__),
                           [&] { result = connection().enter(m_location.bytes); });
    return result ? 1 : 0;
}

const char* FtpPath::scanPlace() const noexcept
{
    return PLACE(kFtpPathHeader, "FtpPath::scan", __LINE__);
}

// A server that cannot be reached any more ends the scan: each further folder would wait for it again.
void FtpPath::list(Walk& walk)
{
    FtpListing listing;
    try {
        listing = connection().list(m_location.bytes, walk.cancelEvent);
    } catch (long code) {
        if (code == ERROR_CANCELLED && walk.poll())
            return;
        const Exception failure(PLACE(kFtpPathHeader, "FtpPath::list", __LINE__),
                                static_cast<unsigned long>(code));
        if (!m_connection || !m_connection.get()->isReachable())
            throw Exception(failure);
        throw ListingFailure{failure};
    }
    for (const FtpEntry& entry : listing.entries) {
        if (walk.poll())
            return;
        FtpLocation location = m_location.joined(entry);
        if (entry.kind == FtpEntry::Kind::Folder) {
            const std::uint32_t level = getLevel() + 1;
            reportContainer(walk, makeShared<ScanItem, FtpPath>(m_connection, std::move(location), level),
                            level, false);
        } else {
            reportLeaf(walk, makeShared<ScanItem, FtpFile>(m_connection, std::move(location),
                                                           entry.kind == FtpEntry::Kind::Link, entry.size));
        }
        if (walk.cancelled)
            return;
    }
    if (listing.failure != ERROR_SUCCESS)
        throw ListingFailure{Exception(PLACE(kFtpPathHeader, "FtpPath::list", __LINE__),
                                       static_cast<unsigned long>(listing.failure)),
                             true};
}
