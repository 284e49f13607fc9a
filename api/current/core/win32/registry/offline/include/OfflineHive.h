#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace offline {
/// A hostile key name with one of these characters is a path, or ends there.
inline constexpr std::wstring_view kNoKeyName(L"\\\0", 2);

/// A hive file in memory, served in one of the two ways. Keys are valid paths below its root (see
/// requirePath); names of values are valid too. The operations raise bare codes, 2 for what does not exist.
/// Not safe for several threads.
class OfflineHive
{
public:
    using Bytes = std::vector<unsigned char>;
    using Names = std::vector<std::wstring>;

    OfflineHive() = default;
    OfflineHive(const OfflineHive&) = delete;
    OfflineHive& operator=(const OfflineHive&) = delete;
    virtual ~OfflineHive() = default;

    /// One of OfflineWay.
    [[nodiscard]] virtual unsigned long way() const noexcept = 0;
    /// Last-write time and class name.
    [[nodiscard]] virtual std::tuple<unsigned long long, std::wstring>
    information(const std::wstring& key) = 0;
    virtual void create(const std::wstring& key, const wchar_t* className) = 0;
    virtual void remove(const std::wstring& key) = 0;
    [[nodiscard]] virtual Names keys(const std::wstring& key) = 0;
    [[nodiscard]] virtual Names values(const std::wstring& key) = 0;
    [[nodiscard]] virtual std::tuple<unsigned long, Bytes> value(const std::wstring& key,
                                                                 const std::wstring& name) = 0;
    virtual void setValue(const std::wstring& key, const std::wstring& name, unsigned long type,
                          const void* data, std::size_t size) = 0;
    virtual void removeValue(const std::wstring& key, const std::wstring& name) = 0;
    /// Of the key's sub-keys, its values, and all keys below it.
    [[nodiscard]] virtual std::tuple<std::size_t, std::size_t, std::size_t>
    counts(const std::wstring& key) = 0;
    /// Writes a new file and flushes it. Raises 183 when it exists. An incomplete one is deleted.
    virtual void save(const wchar_t* newFile) = 0;
};

/// Opens a hive file, or creates a new hive for a null one, in the chosen way. Raises the bare code.
[[nodiscard]] std::unique_ptr<OfflineHive> openHive(const wchar_t* file, unsigned long way);
/// With the built-in engine. `file` may be null.
[[nodiscard]] std::unique_ptr<OfflineHive> openByEngine(const wchar_t* file);
/// Through offreg.dll. `file` may be null. Raises 126 or 127 when that is unavailable.
[[nodiscard]] std::unique_ptr<OfflineHive> openByLibrary(const wchar_t* file);
} // namespace offline
