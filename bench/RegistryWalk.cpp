#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "Bench.h"
#include "CountingHandler.h"

namespace {
constexpr wchar_t kRoot[] = L"Software\\sysmaint-bench";
constexpr DWORD kValues = 100; // in a key
constexpr DWORD kLongestName = 16384;

/// Keys of 100 values each below one key, which lives as long as this.
class RegistryTree
{
public:
    explicit RegistryTree(long keys)
    {
        RegDeleteTreeW(HKEY_CURRENT_USER, kRoot); // what an interrupted run has left
        m_root = makeKey(kRoot);
        for (long key = 0; key < keys; ++key) {
            const HKEY made = makeKey((std::wstring(kRoot) + L"\\key" + std::to_wstring(key)).c_str());
            for (DWORD value = 0; value < kValues; ++value)
                require(RegSetValueExW(made, (L"value " + std::to_wstring(value)).c_str(), 0, REG_SZ,
                                       reinterpret_cast<const BYTE*>(L"x"), 4) == ERROR_SUCCESS,
                        "the values cannot be made");
            RegCloseKey(made);
        }
    }
    RegistryTree(const RegistryTree&) = delete;
    RegistryTree& operator=(const RegistryTree&) = delete;
    ~RegistryTree()
    {
        RegCloseKey(m_root);
        RegDeleteTreeW(HKEY_CURRENT_USER, kRoot);
    }

    [[nodiscard]] HKEY root() const { return m_root; }

private:
    static HKEY makeKey(const wchar_t* path)
    {
        HKEY key = nullptr;
        require(RegCreateKeyExW(HKEY_CURRENT_USER, path, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS,
                                nullptr, &key, nullptr) == ERROR_SUCCESS,
                "the keys cannot be made");
        return key;
    }

    HKEY m_root = nullptr;
};

unsigned long long ourWalk(HKEY root)
{
    CountingHandler counter;
    void* engine = CreateRegistryScanEngine(L"bench");
    RSEngineRegisterHandler(engine, counter, kContainerFound, 0, 0);
    RSEngineRegisterHandler(engine, counter, kLeafFound, 0, 0);
    require(RSEngineAddPath(engine, root, L"") == ERROR_SUCCESS, "the key is no root of a scan");
    ScanOptions options;
    options.depthGiven = 1;
    options.depth = 65535;
    const SharedPtr<IScanValidator> validator(DllGetScanValidator(L"", L""));
    require(RSEngineScan(engine, nullptr, validator, options) == ERROR_SUCCESS, "the walk failed");
    RSEngineClear(engine);
    CloseRegistryScanEngine(engine);
    return counter.count;
}

unsigned long long bareWalk(HKEY key)
{
    unsigned long long count = 0;
    std::vector<wchar_t> name(kLongestName);
    DWORD length = kLongestName;
    for (DWORD index = 0;
         RegEnumValueW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++index, length = kLongestName)
        ++count;
    length = kLongestName;
    for (DWORD index = 0;
         RegEnumKeyExW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++index, length = kLongestName) {
        HKEY child = nullptr;
        require(RegOpenKeyExW(key, name.data(), 0, KEY_READ, &child) == ERROR_SUCCESS,
                "a key cannot be opened");
        count += 1 + bareWalk(child);
        RegCloseKey(child);
    }
    return count;
}
} // namespace

BenchRows registryRows(BenchScale scale)
{
    const long keys = scale(100);
    const auto entries = static_cast<unsigned long long>(keys) * (kValues + 1);
    const auto tree = std::make_shared<std::unique_ptr<RegistryTree>>();
    BenchRows rows;
    rows.timed = {
        {"registry walk, 100 values to a key", "bare RegEnumValueW, RegEnumKeyExW loop", 1 / 1.6,
         static_cast<double>(entries),
         [=] { require(ourWalk((*tree)->root()) == entries, "the walk did not find what is there"); },
         [=] { require(bareWalk((*tree)->root()) == entries, "the bare loop did not find what is there"); },
         [=] {
             if (!*tree)
                 *tree = std::make_unique<RegistryTree>(keys);
         }}};
    return rows;
}
