#pragma once

#include "win32/paths/include/CachedPath.h"
#include "win32/stateholder/include/Serializable.h"
#include "win32/stateholder/include/StateCodes.h"

inline constexpr char kScanItemHeader[] = "win32\\scanengine\\include\\ScanItem.h";

/// The type of a scan item. Directories and registry keys are containers, the others leaves.
enum ScanItemType : std::uint32_t
{
    kDirectoryItem = 1,
    kFileItem = 2,
    kFtpFileItem = 3,
    kRegistryKeyItem = 5,
    kRegistryValueItem = 6
};

/// One concrete thing that a scan finds or a caller names. Base of every item class.
///
/// Serialized form: with bit kStateType of the code the type code (u32), with kStatePath the path text (a
/// string), then the fields of the concrete class. Failing operations raise an Exception with a Win32 code.
///
/// Operations that query an item, dump it or work on the system may run on several threads at once.
/// Operations that change the item itself (set..., load) must not run beside any other on it.
class ScanItem : public SerializableW
{
public:
    static constexpr const char* kClassName = "ScanItem";

    [[nodiscard]] std::uint32_t getType() const noexcept { return m_type; }

    /// The item's full path, never null. Owned by the item.
    [[nodiscard]] virtual const wchar_t* getPath() const { return m_path.getPath(); }
    /// Makes the item name another one of the same type; see CachedPath::setPath for `expand` and the
    /// failures.
    virtual void setPath(const wchar_t* path, int expand) { m_path.setPath(path, expand); }
    /// Identifies the item within the name that it is registered under.
    [[nodiscard]] virtual const IIdentifierW& getIdentifier() const { return m_path; }
    /// Whether an item registered under the same key may be opened in place of this one. No for another kind.
    /// No, too, when the identifier does not describe an item fully and the rest differs.
    [[nodiscard]] virtual bool isInterchangeable(const ScanItem& filed) const
    {
        return filed.getType() == m_type;
    }
    /// Nonzero when the item exists on the system.
    [[nodiscard]] virtual int exists() const = 0;

    /// Writes the common parts that `code` selects. Raises an Exception with 29.
    long dump(unsigned long code, IOutputByteStream& stream) const override
    {
        if ((code & kStateType) != 0)
            primitives::placedStep(PLACE(kScanItemHeader, "ScanItem::dump", __LINE__),
                                   [&] { primitives::writeU32(stream, m_type); });
        if ((code & kStatePath) != 0)
            m_path.dump(stream);
        return ERROR_SUCCESS;
    }

    /// Reads the common parts that `code` selects; without kStatePath the path stays. Raises an Exception
    /// with 30, 8, or 13 when the stream holds an item of another type. Whichever part could not be read, the
    /// library's items stay as they were.
    long load(unsigned long code, IInputByteStream& stream) override
    {
        if ((code & kStateType) != 0)
            primitives::placedStep(PLACE(kScanItemHeader, "ScanItem::load", __LINE__), [&] {
                if (primitives::readU32(stream) != m_type)
                    raiseCode(ERROR_INVALID_DATA);
            });
        if ((code & kStatePath) != 0)
            m_path.load(stream);
        return ERROR_SUCCESS;
    }

protected:
    explicit ScanItem(std::uint32_t type) noexcept : m_type(type) {}
    ScanItem(std::uint32_t type, CachedPath&& path) noexcept : m_type(type), m_path(std::move(path)) {}

    [[nodiscard]] const CachedPath& path() const noexcept { return m_path; }

    /// Restores the path unless it is released: a half-loaded item would name something that nobody named.
    class KeptPath
    {
    public:
        explicit KeptPath(ScanItem& item) : m_item(item), m_path(item.m_path) {}
        KeptPath(const KeptPath&) = delete;
        KeptPath& operator=(const KeptPath&) = delete;
        ~KeptPath()
        {
            if (!m_isReleased)
                m_item.m_path = std::move(m_path);
        }
        void release() noexcept { m_isReleased = true; }

    private:
        ScanItem& m_item;
        CachedPath m_path;
        bool m_isReleased = false;
    };

private:
    std::uint32_t m_type;
    CachedPath m_path;
};
