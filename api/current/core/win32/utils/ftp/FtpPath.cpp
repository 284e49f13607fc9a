#include "core/win32/utils/ftp/include/FtpPath.h"

#include "core/win32/utils/ftp/include/FtpFile.h"
#include "core/win32/utils/objectmanager/include/LibraryCall.h"

namespace {
constexpr std::size_t kLongestPath = 4096; // a server may show folders in folders without end
} // namespace

constexpr char kFtpPathHeader[] = "core\\win32\\utils\\ftp\\include\\FtpPath.h";

FtpPath::FtpPath(const FtpConnectionPtr& connection, FtpLocation location, std::uint32_t level,
                 AncestryPtr ancestry)
    : ScanItem(kDirectoryItem, CachedPath(HeapStringW(connection.get()->urlOf(location.text).c_str()))),
      ScanPath(level), m_connection(connection), m_location(std::move(location)),
      m_ancestry(std::move(ancestry))
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

// What a walk's root is called its own line tells, or the server when it is asked.
FtpListing FtpPath::requireListing(Walk& walk, AncestryPtr& ancestry)
{
    if (m_location.text.size() > kLongestPath)
        raiseCode(ERROR_FILENAME_EXCED_RANGE);
    FtpListing listing = connection().list(m_location.bytes, walk.cancelEvent);
    if (!m_location.unique.empty() && !listing.unique.empty() && listing.unique != m_location.unique)
        raiseCode(ERROR_INVALID_DATA); // of another folder, or of what has taken this one's place
    if (ancestry)
        return listing;
    const bool isCalled = std::any_of(listing.entries.begin(), listing.entries.end(), [](const auto& entry) {
        return entry.kind == FtpEntry::Kind::Folder && !entry.unique.empty();
    });
    if (isCalled) {
        if (listing.unique.empty())
            listing.unique = connection().uniqueOf(m_location.bytes, walk.cancelEvent);
        ancestry = std::make_shared<const Ancestry>(Ancestry{listing.unique, nullptr});
    }
    return listing;
}

bool FtpPath::Ancestry::has(const std::string& wanted) const
{
    for (const Ancestry* folder = this; folder != nullptr; folder = folder->above.get())
        if (!wanted.empty() && folder->unique == wanted)
            return true;
    return false;
}

// A link to a folder above would be walked again and again.
void FtpPath::reportFolder(Walk& walk, const FtpEntry& entry, FtpLocation location,
                           const AncestryPtr& ancestry) const
{
    const std::uint32_t level = getLevel() + 1;
    auto own =
        entry.unique.empty() ? ancestry : std::make_shared<const Ancestry>(Ancestry{entry.unique, ancestry});
    reportContainer(walk,
                    makeShared<ScanItem, FtpPath>(m_connection, std::move(location), level, std::move(own)),
                    level, ancestry && ancestry->has(entry.unique));
}

// A server that cannot be reached any more ends the scan: each further folder would wait for it again.
void FtpPath::list(Walk& walk)
{
    FtpListing listing;
    AncestryPtr ancestry = m_ancestry; // the item may be walked by several threads
    try {
        listing = requireListing(walk, ancestry);
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
            reportFolder(walk, entry, std::move(location), ancestry);
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
