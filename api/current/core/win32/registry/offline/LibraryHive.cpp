#include "core/win32/registry/offline/include/OfflineFile.h"
#include "core/win32/registry/offline/include/OfflineHive.h"
#include "core/win32/registry/offline/include/OfflineLibrary.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "win32/registry/include/IOfflineRegistryKey.h"

namespace offline {
namespace {
using Handle = OfflineLibrary::Handle;

void requireCode(DWORD code)
{
    requireSuccess(static_cast<long>(code));
}

/// An open key, or the root, which needs no opening.
class OpenKey
{
public:
    OpenKey(const OfflineLibrary& library, Handle root, const std::wstring& path)
        : m_library(library), m_handle(root), m_isOwn(!path.empty())
    {
        if (m_isOwn)
            requireCode(library.openKey(root, path.c_str(), &m_handle));
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    ~OpenKey()
    {
        if (m_isOwn)
            m_library.closeKey(m_handle);
    }

    [[nodiscard]] Handle get() const noexcept { return m_handle; }

private:
    const OfflineLibrary& m_library;
    Handle m_handle;
    bool m_isOwn;
};

/// A hive served by the system's library.
class LibraryHive final : public OfflineHive
{
public:
    explicit LibraryHive(const wchar_t* file) : m_library(OfflineLibrary::require())
    {
        requireCode(file != nullptr ? m_library.openHive(Win32Path(file), &m_hive)
                                    : m_library.createHive(&m_hive));
    }
    LibraryHive(const LibraryHive&) = delete;
    LibraryHive& operator=(const LibraryHive&) = delete;
    ~LibraryHive() override { m_library.closeHive(m_hive); }

    [[nodiscard]] unsigned long way() const noexcept override { return kOfflineLibrary; }
    [[nodiscard]] std::tuple<unsigned long long, std::wstring> information(const std::wstring& key) override
    {
        const OpenKey opened(m_library, m_hive, key);
        std::wstring className(kMostCharacters, L'\0');
        DWORD length = kMostCharacters;
        FILETIME time{};
        requireCode(m_library.queryInfoKey(opened.get(), className.data(), &length, nullptr, nullptr, nullptr,
                                           nullptr, nullptr, nullptr, nullptr, &time));
        className.resize(length);
        return {static_cast<unsigned long long>(time.dwHighDateTime) << 32U | time.dwLowDateTime, className};
    }
    /// Key by key: it is not documented whether the library creates missing parents.
    void create(const std::wstring& key, const wchar_t* className) override
    {
        for (std::size_t end = 0; end != std::wstring::npos && !key.empty();) {
            end = key.find(L'\\', end + 1);
            const std::wstring path = key.substr(0, end);
            Handle made = nullptr;
            if (m_library.openKey(m_hive, path.c_str(), &made) != ERROR_SUCCESS) {
                std::wstring own(end == std::wstring::npos && className != nullptr ? className : L"");
                requireCode(m_library.createKey(m_hive, path.c_str(), own.empty() ? nullptr : own.data(), 0,
                                                nullptr, &made, nullptr));
            }
            m_library.closeKey(made);
        }
    }
    void remove(const std::wstring& key) override
    {
        Names waiting{key};
        while (!waiting.empty()) {
            const std::wstring path = waiting.back();
            const Names below = keys(path);
            for (const std::wstring& name : below) {
                if (name.find_first_of(kNoKeyName) != std::wstring::npos)
                    raiseCode(kInvalidName); // its path would be that of another key
                waiting.push_back(std::wstring(path).append(L"\\").append(name));
            }
            if (!below.empty())
                continue;
            requireCode(m_library.deleteKey(m_hive, path.c_str()));
            waiting.pop_back();
        }
    }
    [[nodiscard]] Names keys(const std::wstring& key) override
    {
        return names(key, Hive::kLongestKeyName,
                     [this](Handle opened, DWORD index, wchar_t* name, DWORD* length) {
                         return m_library.enumKey(opened, index, name, length, nullptr, nullptr, nullptr);
                     });
    }
    [[nodiscard]] Names values(const std::wstring& key) override
    {
        return names(key, Hive::kLongestValueName,
                     [this](Handle opened, DWORD index, wchar_t* name, DWORD* length) {
                         return m_library.enumValue(opened, index, name, length, nullptr, nullptr, nullptr);
                     });
    }
    [[nodiscard]] std::tuple<unsigned long, Bytes> value(const std::wstring& key,
                                                         const std::wstring& name) override
    {
        const OpenKey opened(m_library, m_hive, key);
        DWORD type = 0;
        DWORD size = 0;
        requireCode(m_library.getValue(opened.get(), nullptr, name.c_str(), &type, nullptr, &size));
        Bytes bytes(size);
        if (size != 0)
            requireCode(m_library.getValue(opened.get(), nullptr, name.c_str(), &type, bytes.data(), &size));
        bytes.resize(size);
        return {type, std::move(bytes)};
    }
    void setValue(const std::wstring& key, const std::wstring& name, unsigned long type, const void* data,
                  std::size_t size) override
    {
        if (size > MAXDWORD)
            raiseCode(kTooLarge);
        const OpenKey opened(m_library, m_hive, key);
        requireCode(m_library.setValue(opened.get(), name.c_str(), type, static_cast<const BYTE*>(data),
                                       static_cast<DWORD>(size)));
    }
    void removeValue(const std::wstring& key, const std::wstring& name) override
    {
        const OpenKey opened(m_library, m_hive, key);
        requireCode(m_library.deleteValue(opened.get(), name.c_str()));
    }
    [[nodiscard]] std::tuple<std::size_t, std::size_t, std::size_t> counts(const std::wstring& key) override
    {
        const std::size_t subKeys = keys(key).size();
        std::size_t below = 0;
        Names waiting{key};
        while (!waiting.empty()) {
            const std::wstring path = std::move(waiting.back());
            waiting.pop_back();
            for (const std::wstring& name : keys(path)) {
                ++below;
                if (name.find_first_of(kNoKeyName) == std::wstring::npos)
                    waiting.push_back(path.empty() ? name : std::wstring(path).append(L"\\").append(name));
            }
        }
        return {subKeys, values(key).size(), below};
    }
    void save(const wchar_t* newFile) override { m_library.saveNew(m_hive, Win32Path(newFile)); }

private:
    static constexpr DWORD kMostCharacters = 32768;

    template <class Enumerate>
    Names names(const std::wstring& key, std::size_t longest, Enumerate&& enumerate)
    {
        const OpenKey opened(m_library, m_hive, key);
        std::wstring name(longest + 1, L'\0');
        Names names;
        for (DWORD index = 0;; ++index) {
            auto length = static_cast<DWORD>(name.size());
            const DWORD code = enumerate(opened.get(), index, name.data(), &length);
            if (code == ERROR_NO_MORE_ITEMS)
                return names;
            requireCode(code);
            names.emplace_back(name, 0, length);
        }
    }

    OfflineLibrary m_library;
    Handle m_hive = nullptr;
};
} // namespace

std::unique_ptr<OfflineHive> openByLibrary(const wchar_t* file)
{
    return std::make_unique<LibraryHive>(file);
}
} // namespace offline
