#include <algorithm>

#include "core/win32/registry/offline/include/OfflineFile.h"
#include "core/win32/registry/offline/include/OfflineHive.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "win32/registry/include/IOfflineRegistryKey.h"

namespace offline {
namespace {
/// A hive served by the built-in engine.
class EngineHive final : public OfflineHive
{
public:
    explicit EngineHive(const wchar_t* file)
        : m_hive(file != nullptr ? Hive::parse(readFile(file)) : Hive::create(currentTime()))
    {
    }

    [[nodiscard]] unsigned long way() const noexcept override { return kOfflineEngine; }
    [[nodiscard]] std::tuple<unsigned long long, std::wstring> information(const std::wstring& key) override
    {
        const KeyId found = find(key);
        return {m_hive.lastWriteTime(found), wideOf(m_hive.className(found))};
    }
    void create(const std::wstring& key, const wchar_t* className) override
    {
        KeyId firstMade = Hive::kNone;
        const KeyId made = m_hive.createPath(Hive::root(), unitsOf(key), currentTime(), &firstMade);
        if (firstMade == Hive::kNone || className == nullptr || *className == L'\0')
            return;
        try {
            m_hive.setClassName(made, unitsOf(className));
        } catch (...) {
            m_hive.deleteKey(firstMade, currentTime());
            throw;
        }
    }
    void remove(const std::wstring& key) override { m_hive.deleteKey(find(key), currentTime()); }
    [[nodiscard]] Names keys(const std::wstring& key) override
    {
        Names names;
        for (const KeyId each : m_hive.subKeys(find(key)))
            names.push_back(wideOf(m_hive.name(each).text()));
        return names;
    }
    [[nodiscard]] Names values(const std::wstring& key) override
    {
        Names names;
        for (const ValueId each : m_hive.values(find(key)))
            names.push_back(wideOf(m_hive.valueName(each).text()));
        return names;
    }
    [[nodiscard]] std::tuple<unsigned long, Bytes> value(const std::wstring& key,
                                                         const std::wstring& name) override
    {
        const KeyId holder = find(key);
        m_hive.indexValues(holder);
        const auto found = m_hive.findValue(holder, unitsOf(name));
        if (!found.has_value())
            raiseCode(ERROR_FILE_NOT_FOUND);
        Bytes bytes(m_hive.dataSize(*found));
        auto at = bytes.begin();
        m_hive.forEachPart(*found, [&](std::span<const std::byte> part) {
            at = std::transform(part.begin(), part.end(), at,
                                [](std::byte each) { return std::to_integer<unsigned char>(each); });
        });
        return {m_hive.type(*found), std::move(bytes)};
    }
    void setValue(const std::wstring& key, const std::wstring& name, unsigned long type, const void* data,
                  std::size_t size) override
    {
        m_hive.setValue(find(key), unitsOf(name), type, {static_cast<const std::byte*>(data), size},
                        currentTime());
    }
    void removeValue(const std::wstring& key, const std::wstring& name) override
    {
        if (!m_hive.deleteValue(find(key), unitsOf(name), currentTime()))
            raiseCode(ERROR_FILE_NOT_FOUND);
    }
    [[nodiscard]] std::tuple<std::size_t, std::size_t, std::size_t> counts(const std::wstring& key) override
    {
        const KeyId found = find(key);
        std::size_t below = 0;
        std::vector<KeyId> waiting{found};
        while (!waiting.empty()) {
            const std::span<const KeyId> keys = m_hive.subKeys(waiting.back());
            waiting.pop_back();
            waiting.insert(waiting.end(), keys.begin(), keys.end());
            below += keys.size();
        }
        return {m_hive.subKeys(found).size(), m_hive.values(found).size(), below};
    }
    void save(const wchar_t* newFile) override { writeNew(newFile, m_hive.compact()); }

private:
    [[nodiscard]] KeyId find(const std::wstring& key) const
    {
        const auto found = m_hive.findPath(Hive::root(), unitsOf(key));
        if (!found.has_value())
            raiseCode(ERROR_FILE_NOT_FOUND);
        return *found;
    }

    Hive m_hive;
};
} // namespace

std::unique_ptr<OfflineHive> openByEngine(const wchar_t* file)
{
    return std::make_unique<EngineHive>(file);
}
} // namespace offline
