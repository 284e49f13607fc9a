#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "core/win32/registry/api.h"
#include "support/Links.h"
#include "support/Wipe.h"

// Roads by which something went that nobody had named. What is precious lies in `keep`, under the names of
// the tree.
class NamedAlone : public testing::Test
{
protected:
    NamedAlone() : folder(scratchFolder()), root(folder + L"\\root"), precious(folder + L"\\keep\\a\\f")
    {
        takeBootList();
        for (const wchar_t* top : {L"\\root", L"\\keep"}) {
            CreateDirectoryW((folder + top).c_str(), nullptr);
            CreateDirectoryW((folder + top + L"\\a").c_str(), nullptr);
            writeBytes(folder + top + L"\\a\\f", {1, 2, 3});
        }
    }
    ~NamedAlone() override
    {
        EXPECT_EQ(readBytes(precious), (Bytes{1, 2, 3}));
        takeBootList();
    }
    [[nodiscard]] static std::unique_ptr<IWiper> wiper() { return std::unique_ptr<IWiper>(DllGetWiper()); }

    const std::wstring folder;
    const std::wstring root;
    const std::wstring precious;
};

TEST_F(NamedAlone, NoRootThatBecameALinkIsFollowed)
{
    SharedPtr<ScanItem> found;
    Collector collector;
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
        found = item->getType() == kFileItem ? item : found;
    };
    ASSERT_EQ(TestEngine(collector).scan(root), ERROR_SUCCESS);
    swapForLink(root, folder + L"\\keep");
    auto& file = dynamic_cast<IFile&>(*found);
    unsigned long long size = 0;
    const std::function<void()> operations[] = {[&] { file.deleteItem(); }, [&] { file.create(); },
                                                [&] { file.getData(size); }};
    for (const auto& operation : operations)
        EXPECT_EQ(codeOf(operation), 681U);
    DirectoryStack stack;
    stack.push_back({L"f", HeapStringW((root + L"\\a").c_str()), false, false});
    EXPECT_EQ(wiper()->Wipe(nullptr, nullptr, kWipeDirectoryStack, root.c_str(), &stack, nullptr, kWipeZeros,
                            1, nullptr),
              681);
    EXPECT_EQ(stack.size(), 1U);
}

TEST_F(NamedAlone, ACallbackChangesNeitherTheStackNorTheRun)
{
    static DirectoryStack entries; // static, as the callback has no other way to them
    static const auto own = wiper();
    static long inner = 0;
    entries.push_back({L"g", HeapStringW((root + L"\\a").c_str()), false, true});
    entries.push_back({L"f", HeapStringW((root + L"\\a").c_str()), false, false});
    WipeProgress progress;
    const auto change = [](WipeProgress*) {
        entries.clear();
        entries.push_back({L"pushed", L"", false, true});
        inner = own->Wipe(nullptr, nullptr, kWipeFile, L"C:\\none", nullptr, nullptr, kWipeZeros, 1, nullptr);
    };
    EXPECT_EQ(own->Wipe(change, &progress, kWipeDirectoryStack, root.c_str(), &entries, nullptr, kWipeZeros,
                        1, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(inner, ERROR_BUSY);
    EXPECT_FALSE(isThere(root + L"\\a\\f"));
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries.back().path, L"pushed");
}

TEST_F(NamedAlone, TheBootTimeListTakesNeitherItselfNorHalfALine)
{
    EXPECT_NE(wiper()->Wipe(nullptr, nullptr, kWipeFile, bootListPath().c_str(), nullptr, nullptr, kWipeZeros,
                            1, nullptr),
              ERROR_SUCCESS);
    EXPECT_TRUE(takeBootList().empty());

    const std::wstring torn =
        LR"(*FileShred*	*\??\C:\windows\torn*	*1*	*1*FileShred*	*\??\C:\windows\x*	*1*	*1)";
    const struct
    {
        std::wstring line;
        int scheduled;
    } rows[] = {{torn + L"\r\n", 0},
                {torn.substr(0, torn.find(L"*1*File") + 2), 0},
                {torn.substr(0, torn.find(L"*1*File") + 2) + L"\r\n", 1}};
    for (const auto& row : rows) {
        const std::wstring text = std::wstring(L"\0\0\r\n", 4) + row.line;
        const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
        writeBytes(bootListPath(), Bytes(bytes, bytes + text.size() * sizeof(wchar_t)));
        EXPECT_EQ(ForceDeleteIsScheduled(L"C:\\windows\\torn"), row.scheduled);
    }
    writeBytes(bootListPath(), {0, 0, 0});
    EXPECT_EQ(wiper()->Wipe(nullptr, nullptr, kWipeFile, L"C:\\windows\\none", nullptr, nullptr, kWipeZeros,
                            1, nullptr),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(readBytes(bootListPath()), (Bytes{0, 0, 0}));
    EXPECT_EQ(ForceDeleteIsScheduled(nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

// A stream that ends early, wherever that is, leaves each kind of item what it was.
TEST_F(NamedAlone, HalfALoadNamesNothing)
{
    const unsigned long code = kStateType | kStatePath;
    const auto check = [&](auto& item, const auto& other, const std::wstring& path) {
        MemoryOutputByteStream whole;
        other.dump(code, whole);
        MemoryOutputByteStream before;
        item.dump(code, before);
        for (std::size_t size = 0; size < whole.getSize(); ++size) {
            MemoryInputByteStream cut(whole.getData(), size);
            EXPECT_EQ(codeOf([&] { item.load(code, cut); }), static_cast<DWORD>(ERROR_READ_FAULT)) << size;
            MemoryOutputByteStream after;
            item.dump(code, after);
            EXPECT_EQ(Bytes(after.getData(), after.getData() + after.getSize()),
                      Bytes(before.getData(), before.getData() + before.getSize()))
                << size;
            EXPECT_EQ(item.getPath(), path) << size;
        }
    };
    const std::unique_ptr<IFile> file(DllGetFile((root + L"\\new").c_str(), 0));
    const std::unique_ptr<IFile> otherFile(DllGetFile(precious.c_str(), 0));
    file->setData("mine", 4);
    otherFile->setData("theirs", 6);
    check(*file, *otherFile, root + L"\\new");
    const std::unique_ptr<IRegistryKey> key(DllGetRegistryKey(HKEY_CURRENT_USER, L"Software\\one"));
    const std::unique_ptr<IRegistryKey> otherKey(DllGetRegistryKey(HKEY_LOCAL_MACHINE, L"Software\\other"));
    check(*key, *otherKey, L"HKEY_CURRENT_USER\\Software\\one");
    const std::unique_ptr<IRegistryValue> value(
        DllGetRegistryValue(HKEY_CURRENT_USER, L"Software\\one", L"v", L"text"));
    const std::unique_ptr<IRegistryValue> otherValue(
        DllGetRegistryValue(HKEY_LOCAL_MACHINE, L"Software\\other", L"w", L"other text"));
    check(*value, *otherValue, L"HKEY_CURRENT_USER\\Software\\one\\v");
}

// Below some systems a name may hold a backslash, and would be read as the path of another file.
TEST_F(NamedAlone, ANameThatReadsAsAPathIsNoItem)
{
    constexpr long long kCreate = 85;
    constexpr long long kClose = 3;
    const std::string name = unixPath(root + L"\\") + "a\\f";
    unixCall(kClose, unixArgument(unixCall(kCreate, name.c_str(), unixArgument(0600)))); // made and closed
    Collector collector;
    EXPECT_EQ(TestEngine(collector).scan(root), static_cast<long>(ERROR_INVALID_NAME));
    EXPECT_EQ(collector.calls, 2) << "the folder and the file in it";
}

// One byte of a stream, say a damaged one, must not make a path that of the folder or key above.
TEST_F(NamedAlone, NoZeroCutsALoadedText)
{
    const std::wstring path = root + L"\\a\\f";
    const std::unique_ptr<IFile> file(DllGetFile(path.c_str(), 0));
    const std::unique_ptr<IRegistryKey> key(DllGetRegistryKey(HKEY_CURRENT_USER, path.c_str()));
    const std::unique_ptr<IRegistryValue> value(DllGetRegistryValue(HKEY_CURRENT_USER, L"key", path.c_str()));
    const std::unique_ptr<IScanValidator> rules(DllGetScanValidator(L"*.tmp", L"*.tmp"));
    using Dump = std::function<void(IOutputByteStream&)>;
    using Load = std::function<void(IInputByteStream&)>;
    std::vector<std::pair<Dump, Load>> states;
    const auto add = [&](auto& state) {
        states.emplace_back([&](IOutputByteStream& stream) { state.dump(kStatePath, stream); },
                            [&](IInputByteStream& stream) { state.load(kStatePath, stream); });
    };
    add(dynamic_cast<ScanItem&>(*file));
    add(dynamic_cast<ScanItem&>(*key));
    add(dynamic_cast<ScanItem&>(*value));
    add(*rules);
    for (const auto& [dump, load] : states) {
        MemoryOutputByteStream dumped;
        dump(dumped);
        const auto* first = static_cast<const unsigned char*>(dumped.getData());
        const Bytes bytes(first, first + dumped.getSize());
        int found = 0;
        const Bytes star = {'*', 0, '.', 0};
        const Bytes slash = {'\\', 0, 'a', 0};
        for (const Bytes& text : {star, slash}) {
            const auto at = std::search(bytes.begin(), bytes.end(), text.begin(), text.end());
            if (at == bytes.end())
                continue;
            ++found;
            Bytes damaged = bytes;
            damaged[static_cast<std::size_t>(at - bytes.begin())] = 0;
            MemoryInputByteStream stream(damaged.data(), damaged.size());
            EXPECT_EQ(codeOf([&] { load(stream); }), ERROR_READ_FAULT);
        }
        EXPECT_EQ(found, 1);
    }
    EXPECT_EQ(file->getPath(), path);
}

// Who asks for an item by name gets the one that was filed, or none.
TEST_F(NamedAlone, NoItemStandsForWhatItWasBefore)
{
    const std::wstring path = root + L"\\a\\f";
    void* handle = CreateFileW(L"filed", path.c_str(), 0);
    SharedPtr<ScanItem> item;
    ASSERT_EQ(GetScanItemByHandle(handle, item), ERROR_SUCCESS);
    item->setPath(precious.c_str(), 0);
    EXPECT_EQ(CreateFileW(L"filed", path.c_str(), 0), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(OpenScanItem(L"filed", path.c_str()), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);
    item->setPath(path.c_str(), 0);
    EXPECT_EQ(OpenScanItem(L"filed", path.c_str()), handle);
    EXPECT_EQ(CloseScanItem(handle) + CloseScanItem(handle), 2);

    // A root of an engine is listed as it was added.
    Collector collector;
    const TestEngine engine(collector, L"filed");
    ASSERT_EQ(FSEngineAddPath(engine.handle, root.c_str(), 0), ERROR_SUCCESS);
    ASSERT_EQ(GetScanItemByHandle(handle = OpenScanItem(L"filed", root.c_str()), item), ERROR_SUCCESS);
    item->setPath((folder + L"\\keep").c_str(), 0);
    EXPECT_EQ(engine.scan(root), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths.count(root + L"\\a\\f"), 1U);
    CloseScanItem(handle);
}
