#include "core/win32/utils/ftp/include/FtpFile.h"

#include "core/win32/utils/objectmanager/include/LibraryCall.h"

constexpr char kFtpFileHeader[] = "core\\win32\\utils\\ftp\\include\\FtpFile.h";

using namespace primitives;

FtpFile::FtpFile(const FtpConnectionPtr& connection, FtpLocation location, bool isLink,
                 std::optional<unsigned long long> size)
    : ScanItem(kFtpFileItem, CachedPath(HeapStringW(connection.get()->urlOf(location.text).c_str()))),
      m_connection(connection), m_location(std::move(location)), m_isLink(isLink), m_size(size)
{
}

FtpConnection& FtpFile::connection() const
{
    if (!m_connection)
        raiseCode(ERROR_NOT_CONNECTED);
    return *m_connection.get();
}

void FtpFile::setPath(const wchar_t* path, int expand)
{
    const InsideLibrary inside;
    m_connection = FtpConnectionPtr();
    m_size.reset();
    m_isLink = false;
    ScanItem::setPath(path, expand);
}

bool FtpFile::isInterchangeable(const ScanItem& filed) const
{
    const InsideLibrary inside;
    const auto* other = dynamic_cast<const FtpFile*>(&filed);
    if (other == nullptr || !m_connection || !other->m_connection)
        return false;
    return m_location.bytes == other->m_location.bytes &&
           m_connection.get()->getServer() == other->m_connection.get()->getServer();
}

unsigned long long FtpFile::getSize() const
{
    const InsideLibrary inside;
    unsigned long long size = m_size.value_or(0);
    if (!m_size)
        placedStep(PLACE(kFtpFileHeader, "FtpFile::getSize", __LINE__), [&] {
            const std::optional<unsigned long long> said = connection().sizeOf(m_location.bytes, nullptr);
            if (!said)
                raiseCode(ERROR_FILE_NOT_FOUND);
            size = *said;
        });
    return size;
}

int FtpFile::exists() const
{
    const InsideLibrary inside;
    int result = 0;
    placedStep(PLACE(kFtpFileHeader, "FtpFile::exists", __LINE__),
               [&] { result = connection().sizeOf(m_location.bytes, nullptr) ? 1 : 0; });
    return result;
}

void FtpFile::download(const wchar_t* localPath, bool goOn, HANDLE cancelEvent) const
{
    const InsideLibrary inside;
    placedStep(PLACE(kFtpFileHeader, "FtpFile::download", __LINE__), [&] {
        if (localPath == nullptr || *localPath == L'\0')
            raiseCode(ERROR_INVALID_PARAMETER);
        connection().download(m_location.bytes, localPath, goOn, cancelEvent);
    });
}

void FtpFile::upload(const wchar_t* localPath, HANDLE cancelEvent) const
{
    const InsideLibrary inside;
    placedStep(PLACE(kFtpFileHeader, "FtpFile::upload", __LINE__), [&] {
        if (localPath == nullptr || *localPath == L'\0')
            raiseCode(ERROR_INVALID_PARAMETER);
        connection().upload(m_location.bytes, localPath, cancelEvent);
    });
}

void FtpFile::deleteItem(HANDLE cancelEvent) const
{
    const InsideLibrary inside;
    placedStep(PLACE(kFtpFileHeader, "FtpFile::deleteItem", __LINE__),
               [&] { connection().remove(m_location.bytes, cancelEvent); });
}

long FtpFile::dump(unsigned long code, IOutputByteStream& stream) const
{
    const InsideLibrary inside;
    ScanItem::dump(code, stream);
    placedStep(PLACE(kFtpFileHeader, "FtpFile::dump", __LINE__), [&] {
        const unsigned long long size = m_size.value_or(0);
        writeU32(stream, m_size ? 1 : 0);
        writeU32(stream, static_cast<std::uint32_t>(size));
        writeU32(stream, static_cast<std::uint32_t>(size >> 32U));
    });
    return ERROR_SUCCESS;
}

long FtpFile::load(unsigned long code, IInputByteStream& stream)
{
    const InsideLibrary inside;
    KeptPath kept(*this);
    ScanItem::load(code, stream);
    placedStep(PLACE(kFtpFileHeader, "FtpFile::load", __LINE__), [&] {
        const std::uint32_t isKnown = readU32(stream);
        const std::uint64_t low = readU32(stream);
        const std::uint64_t high = readU32(stream);
        if (isKnown > 1)
            raiseCode(ERROR_INVALID_DATA);
        m_size = isKnown != 0 ? std::optional<unsigned long long>(high << 32U | low) : std::nullopt;
    });
    m_connection = FtpConnectionPtr();
    m_isLink = false;
    kept.release();
    return ERROR_SUCCESS;
}
