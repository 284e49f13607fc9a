#include "core/win32/registry/include/RegistryValue.h"

#include <cstring>
#include <utility>

#include "core/win32/registry/include/ValueData.h"
#include "core/win32/utils/objectmanager/include/LibraryCall.h"

constexpr char kRegistryValueHeader[] = "core\\win32\\registry\\include\\RegistryValue.h";

using namespace primitives;

namespace {
constexpr std::uint32_t kDataKnown = 1; // bits of the serialized form
constexpr std::uint32_t kTypeKnown = 2;
constexpr std::size_t kLongestName = 16383;

/// Fills `copy` and appends two characters, so that text is terminated. Raises the bare code.
void copyData(Blob& copy, const void* data, unsigned long size)
{
    if (data == nullptr && size != 0)
        raiseCode(ERROR_INVALID_PARAMETER);
    copy.allocate(size, 2 * sizeof(wchar_t));
    if (size != 0)
        std::memcpy(copy.getData(), data, size);
}
} // namespace

RegistryValue::RegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name, unsigned long options)
    : RegistryKey(kRegistryValueItem, root, subKey, options)
{
    placedStep(PLACE(kRegistryValueHeader, "RegistryValue::RegistryValue", __LINE__), [&] {
        if (name == nullptr)
            raiseCode(ERROR_INVALID_PARAMETER);
        setName(name);
    });
}

RegistryValue::RegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name, const wchar_t* text)
    : RegistryValue(root, subKey, name, 0UL)
{
    placedStep(PLACE(kRegistryValueHeader, "RegistryValue::RegistryValue", __LINE__), [&] {
        if (text == nullptr)
            raiseCode(ERROR_INVALID_PARAMETER);
        setData(REG_SZ, text, static_cast<unsigned long>((std::wcslen(text) + 1) * sizeof(wchar_t)));
    });
}

RegistryValue::RegistryValue(const RegistryKey& key, std::wstring_view subKey, std::wstring_view name,
                             unsigned long type)
    : RegistryKey(kRegistryValueItem, key, HeapStringW(subKey), key.rootLength()), m_type(type),
      m_isRead(true)
{
    setName(name);
}

void RegistryValue::setPath(const wchar_t* path, int expand)
{
    const InsideLibrary inside;
    RegistryKey::setPath(path, expand);
    if (!std::exchange(m_isRead, false))
        return;
    keep(REG_NONE, nullptr, 0);
    m_hasData = false;
    m_type.reset();
}

void RegistryValue::setName(std::wstring_view name)
{
    m_suffix.assign(1, L'\\').append(name);
}

RegistryValue::Content RegistryValue::content() const noexcept
{
    const ReadLocker locker(m_dataLock);
    return {m_type, m_data, m_hasData ? m_size : 0, m_hasData};
}

void RegistryValue::keep(unsigned long type, void* data, unsigned long size) noexcept
{
    processheap::release(m_data);
    m_type = type;
    m_data = data;
    m_size = size;
    m_hasData = true;
}

void RegistryValue::requireName() const
{
    if (m_suffix.size() - 1 > kLongestName)
        raiseCode(ERROR_FILENAME_EXCED_RANGE);
}

void RegistryValue::write(unsigned long type, const void* data, unsigned long size) const
{
    requireName();
    const RegistryKeyHandle key = openToChange(Change::kWrite, KEY_SET_VALUE);
    requireSuccess(RegSetValueExW(key.get(), getName(), 0, type, static_cast<const BYTE*>(data), size));
}

bool RegistryValue::isThereIn(HKEY root, const wchar_t* subKey) const
{
    const InsideLibrary inside;
    if (!RegistryKey::isThereIn(root, subKey))
        return false;
    const RegistryKeyHandle key = openIn(root, subKey, KEY_QUERY_VALUE);
    return hasValue(key.get());
}

bool RegistryValue::hasValue(HKEY key) const
{
    const LSTATUS status = RegQueryValueExW(key, getName(), nullptr, nullptr, nullptr, nullptr);
    if ((status != ERROR_FILE_NOT_FOUND && status != ERROR_KEY_DELETED) || isHiveGone(status))
        requireSuccess(status);
    return status == ERROR_SUCCESS;
}

void RegistryValue::create()
{
    const InsideLibrary inside;
    placedOperation(PLACE(kRegistryValueHeader, "RegistryValue::create", __LINE__), [&] {
        const Content value = content();
        write(value.type.value_or(REG_NONE), value.data, value.size);
    });
}

void RegistryValue::deleteItem()
{
    const InsideLibrary inside;
    placedOperation(PLACE(kRegistryValueHeader, "RegistryValue::deleteItem", __LINE__), [&] {
        requireName();
        const RegistryKeyHandle key = openToChange(Change::kDelete, KEY_SET_VALUE);
        requireSuccess(RegDeleteValueW(key.get(), getName()));
    });
}

int RegistryValue::exists() const
{
    const InsideLibrary inside;
    int found = 0;
    placedOperation(PLACE(kRegistryValueHeader, "RegistryValue::exists", __LINE__), [&] {
        requireName();
        const RegistryKeyHandle key = openExisting(KEY_QUERY_VALUE);
        found = key.isValid() && hasValue(key.get()) ? 1 : 0;
    });
    return found;
}

unsigned long RegistryValue::getValueType()
{
    const InsideLibrary inside;
    const WriteLocker locker(m_dataLock);
    if (!m_type)
        placedOperation(PLACE(kRegistryValueHeader, "RegistryValue::getValueType", __LINE__), [&] {
            requireName();
            const RegistryKeyHandle key = open(KEY_QUERY_VALUE);
            DWORD type = 0;
            requireSuccess(RegQueryValueExW(key.get(), getName(), nullptr, &type, nullptr, nullptr));
            m_type = type;
            m_isRead = true;
        });
    return *m_type;
}

const void* RegistryValue::getData(unsigned long& size)
{
    const InsideLibrary inside;
    const WriteLocker locker(m_dataLock);
    if (!m_hasData)
        placedOperation(PLACE(kRegistryValueHeader, "RegistryValue::getData", __LINE__), [&] {
            requireName();
            const RegistryKeyHandle key = open(KEY_QUERY_VALUE);
            Blob data;
            DWORD type = 0;
            DWORD length = 0;
            // Two more characters, so that text is terminated even where the registry's is not.
            requireSuccess(valuedata::query(key.get(), getName(), type, length, [&](std::size_t capacity) {
                data.allocate(capacity, 2 * sizeof(wchar_t));
                return data.getData();
            }));
            std::memset(static_cast<BYTE*>(data.getData()) + length, 0, 2 * sizeof(wchar_t));
            keep(type, data.release(), length);
            m_isRead = true;
        });
    size = m_size;
    return m_data;
}

void RegistryValue::setData(unsigned long type, const void* data, unsigned long size)
{
    const InsideLibrary inside;
    placedStep(PLACE(kRegistryValueHeader, "RegistryValue::setData", __LINE__), [&] {
        Blob copy;
        copyData(copy, data, size);
        keep(type, copy.release(), size);
        m_isRead = false;
    });
}

void RegistryValue::setValue(unsigned long type, const void* data, unsigned long size)
{
    const InsideLibrary inside;
    placedOperation(PLACE(kRegistryValueHeader, "RegistryValue::setValue", __LINE__), [&] {
        Blob copy;
        copyData(copy, data, size);
        write(type, copy.getData(), size);
        keep(type, copy.release(), size);
        m_isRead = false;
    });
}

long RegistryValue::dump(unsigned long code, IOutputByteStream& stream) const
{
    const InsideLibrary inside;
    RegistryKey::dump(code, stream);
    placedStep(PLACE(kRegistryValueHeader, "RegistryValue::dump", __LINE__), [&] {
        const Content value = content();
        writeString(stream, getName());
        writeU32(stream, value.type.value_or(REG_NONE));
        writeU32(stream, (value.isKnown ? kDataKnown : 0U) | (value.type ? kTypeKnown : 0U));
        if (value.isKnown)
            writeBlob(stream, value.data, value.size);
    });
    return ERROR_SUCCESS;
}

long RegistryValue::load(unsigned long code, IInputByteStream& stream)
{
    const InsideLibrary inside;
    const FullPathReset reset(*this); // runs after the path is restored
    KeptState kept(*this);
    RegistryKey::load(code, stream);
    placedStep(PLACE(kRegistryValueHeader, "RegistryValue::load", __LINE__), [&] {
        const HeapStringW name = readText<wchar_t>(stream);
        const std::uint32_t type = readU32(stream);
        const std::uint32_t known = readU32(stream);
        if ((known & ~(kDataKnown | kTypeKnown)) != 0)
            raiseCode(ERROR_INVALID_DATA);
        const bool hasData = (known & kDataKnown) != 0;
        Blob data;
        if (hasData)
            data.read(stream, 2 * sizeof(wchar_t));
        const std::size_t size = hasData ? data.getSize() : 0;
        if (size > MAXDWORD)
            raiseCode(ERROR_READ_FAULT);
        setName(name);
        kept.release();
        m_isRead = false;
        keep(type, hasData ? data.release() : nullptr, static_cast<unsigned long>(size));
        m_hasData = hasData;
        if (!hasData && (known & kTypeKnown) == 0)
            m_type.reset();
    });
    return ERROR_SUCCESS;
}
