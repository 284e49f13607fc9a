// Checks that nothing is destroyed that was not named: rounds of one random deleting or overwriting operation
// each, on a tree full of things that it could destroy by mistake.
//   safety FOLDER [--seed N] [--rounds N] [--round N]
// FOLDER is a Unix path; --round repeats a single round.

#include "core/win32/registry/api.h"
#include "safety/Round.h"

namespace {
/// One call of the wiper with random settings.
unsigned long wipe(Round& round, std::uint32_t kind, const wchar_t* path, DirectoryStack* stack = nullptr,
                   const IScanValidator* validator = nullptr)
{
    static Round* wiping; // for the callback, which is a plain function
    wiping = &round;
    WipeProgress progress;
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    const std::uint32_t method = round.choices.oneIn(8) ? kWipeGutmann : 1 + round.choices.below(2);
    return static_cast<unsigned long>(wiper->Wipe([](WipeProgress*) { wiping->moment(); }, &progress, kind,
                                                  path, stack, validator, method, round.choices.below(3),
                                                  round.cancel.get()));
}

/// Whether the rules that rounds use, "report*" for the names of leaves, are about the thing.
const auto isReport = [](const std::string& path) {
    return path.compare(path.find_last_of("/:") + 1, 6, "report") == 0;
};

/// Deletes what a scan has found, or some of it, at once or at the end.
struct Deleter : INotifyHandler
{
    /// What is found below the thing `top` has a path that begins with `begin`.
    Deleter(Round& ofRound, std::string top, std::wstring begin)
        : round(ofRound), root(std::move(top)), start(std::move(begin))
    {
    }
    void onNotify(const Notification&, const SharedPtr<ScanItem>& item) override
    {
        round.moment();
        const std::string path = thing(*item);
        if (path.empty() || round.choices.oneIn(3))
            return;
        found.emplace_back(path, item);
        if (!later)
            finish();
    }
    /// Deletes what was kept, from the back, so that folders come after their content.
    void finish()
    {
        for (; !found.empty(); found.pop_back()) {
            if (later)
                round.moment();
            destroy(found.back().first, *found.back().second);
        }
    }
    /// The thing that an item stands for. Empty: it could not have been found.
    std::string thing(ScanItem& item)
    {
        const std::wstring text = item.getPath();
        std::wstring names = text.substr(std::min(start.size(), text.size()));
        const char* kinds = item.getType() == kFileItem ? "f" : "dl";
        if (auto* value = dynamic_cast<IRegistryValue*>(&item); value != nullptr) {
            kinds = "v";
            names[names.size() - 1 - std::wcslen(value->getName())] = L':';
        } else if (dynamic_cast<IRegistryKey*>(&item) != nullptr) {
            kinds = "kL";
        } else {
            names = L"\\" + names.substr(std::min(names.find_first_not_of(L"\\/"), names.size()));
        }
        std::string path = root + utf8(names);
        std::replace(path.begin(), path.end(), '\\', '/');
        if (text.starts_with(start) && std::strchr(kinds, round.kind(path)) != nullptr &&
            !(ignoresReports && *kinds == 'f' && isReport(path)))
            return path;
        round.violation("found " + utf8(text));
        return {};
    }
    void destroy(const std::string& path, ScanItem& item)
    {
        if (path == "registry/root/sub" && round.choices.oneIn(3)) { // somebody puts a link there
            RegDeleteTreeW(HKEY_LOCAL_MACHINE, keyPath(path).c_str());
            makeKeyLink(path);
        }
        auto* stored = dynamic_cast<IFileSystemItem*>(&item);
        auto* value = dynamic_cast<IRegistryValue*>(&item);
        // The text alone does not tell what it was relative to.
        const bool wipesIt = wipes && round.trouble != Trouble::otherFolder && round.kind(path) == 'f';
        round.name(path, wipesIt);
        if (wipesIt)
            return round.done(path, wipe(round, kWipeFile, item.getPath()), true);
        const unsigned long code = codeOf([&] {
            if (stored != nullptr)
                stored->deleteItem();
            else
                value != nullptr ? value->deleteItem() : dynamic_cast<IRegistryKey&>(item).deleteItem();
        });
        round.done(path, code);
    }

    Round& round;
    std::string root;
    std::wstring start;
    bool later = round.choices.oneIn(2);
    bool wipes = round.choices.oneIn(4);
    bool ignoresReports = round.choices.oneIn(3);
    std::vector<std::pair<std::string, SharedPtr<ScanItem>>> found;
};

/// Deletes, makes or fills one file or folder.
void useItem(Round& round)
{
    const unsigned action = round.choices.below(11);
    const bool folder = action < 3; // 0 makes one
    const bool deletes = action >= 1 && action < 7;
    const bool sub = folder && round.choices.oneIn(6);
    const std::string path = sub ? "root/sub" : round.target("root", folder ? "dddlf-" : "fffffdl-");
    round.plan({Trouble::otherFolder, Trouble::failingCall, sub ? Trouble::link : Trouble::none});
    const std::wstring& text = round.write(path, folder);
    const std::unique_ptr<IDirectory> directory(DllGetDirectory(text.c_str(), 0));
    const std::unique_ptr<IFile> own(DllGetFile(text.c_str(), 0));
    void* handle = round.choices.oneIn(3) ? CreateFileW(L"safety", text.c_str(), 0) : nullptr;
    SharedPtr<ScanItem> filed;
    GetScanItemByHandle(handle, filed);
    auto* file = filed ? dynamic_cast<IFile*>(filed.get()) : own.get();
    round.moment();
    const char kind = round.kind(path);
    if (deletes && (kind == 'l' || (kind == 'f' && !folder) || (sub && round.trouble == Trouble::link) ||
                    (kind == 'd' && folder && round.within(path).size() == 1)))
        round.name(path);
    if (!deletes && kind == '-')
        round.mayAppear.insert(path);
    if (action >= 8 && kind == 'f')
        round.name(path, true);
    const std::string data = action == 9 ? "new" : "";
    unsigned long long size = 0;
    const unsigned long code = codeOf([&] {
        if (directory == nullptr || file == nullptr) // it was refused
            throw Exception("an item", nullptr, ERROR_INVALID_NAME);
        if (folder)
            return deletes ? directory->deleteItem() : directory->create();
        if (deletes)
            return file->deleteItem();
        if (action == 7) // asking a missing file for its data makes it
            return void(file->getData(size));
        file->setData(data.data(), data.size());
        file->create();
    });
    CloseScanItem(handle);
    if (deletes)
        round.done(path, code);
    else if (action >= 8 && code == ERROR_SUCCESS)
        round.contents[path] = data;
}

void scanAndDelete(Round& round)
{
    const std::string root = round.choices.oneIn(2) ? "root" : round.target("root", "d");
    const Trouble link = root == "root" ? Trouble::link : Trouble::cancel;
    round.plan({Trouble::otherFolder, Trouble::cancel, Trouble::failingCall, link, link});
    Deleter deleter(round, root, round.write(root, true));
    const TestEngine engine(deleter, L"safety");
    if (FSEngineAddPath(engine.handle, round.text.c_str(), 0) != ERROR_SUCCESS)
        return;
    round.moment();
    engine.rescan(round.choices.oneIn(3) ? 1 + round.choices.below(3) : 65535, round.cancel.get(), L"",
                  deleter.ignoresReports ? L"report*" : L"");
    deleter.finish();
    FSEngineClear(engine.handle);
}

void wipeFile(Round& round)
{
    const std::string path = round.target("root", "ffffffdl-");
    round.plan({Trouble::otherFolder, Trouble::cancel, Trouble::failingCall});
    const std::wstring& text = round.write(path, false);
    const bool refused = round.choices.oneIn(5) && isReport(path);
    const std::unique_ptr<IScanValidator> validator(DllGetScanValidator(L"", L"report*"));
    if (!refused && (round.kind(path) == 'f' || round.kind(path) == 'l'))
        round.name(path, round.kind(path) == 'f');
    const HANDLE lock = round.choices.oneIn(8) ? ::CreateFileW(round.literalPath(path).c_str(), GENERIC_READ,
                                                               0, nullptr, OPEN_EXISTING, 0, nullptr)
                                               : nullptr;
    const unsigned long code =
        wipe(round, kWipeFile, text.c_str(), nullptr, refused ? validator.get() : nullptr);
    if (!refused)
        round.done(path, code, true);
    CloseHandle(lock);
}

void wipeStack(Round& round)
{
    const std::string root = round.choices.oneIn(2) ? "root" : round.target("root", "d");
    round.plan({Trouble::otherFolder, Trouble::cancel, Trouble::failingCall,
                root == "root" ? Trouble::link : Trouble::cancel});
    const std::wstring text = round.write(root, true);
    const bool closed = std::wcschr(L"\\/:", text.back()) != nullptr;
    DirectoryStack stack;
    std::vector<std::string> wiped;
    const bool whole = round.choices.oneIn(2);
    for (const std::string& path : round.within(root)) {
        const std::wstring full =
            text + wide(path.substr(std::min(root.size() + (closed ? 1 : 0), path.size())));
        const std::size_t last = std::max(full.find_last_of(L'\\') + 1, text.size() + 1) - 1;
        const bool skip = !whole && round.choices.oneIn(3);
        if (round.kind(path) == 'f')
            stack.push_back({HeapStringW(wide(path.substr(path.rfind('/') + 1)).c_str()),
                             HeapStringW(full.substr(0, last).c_str()), false, skip});
        else
            stack.push_back({HeapStringW(full.c_str()), L"", true, skip});
        if (skip)
            continue;
        round.name(path, round.kind(path) == 'f');
        wiped.push_back(path);
    }
    if (round.trouble == Trouble::link)
        round.moment(); // what relative paths mean is settled by the call
    if (wipe(round, kWipeDirectoryStack, text.c_str(), &stack) == ERROR_SUCCESS)
        round.gone.insert(wiped.begin(), wiped.end());
}

void changeRegistryItem(Round& round)
{
    const std::string path =
        round.target(round.choices.oneIn(2) ? "registry/root/sub" : "registry/root", "kkvL");
    const bool create = round.choices.oneIn(4);
    round.plan({Trouble::failingCall});
    round.text = keyPath(path);
    if (round.choices.oneIn(3)) // case tells no keys apart
        CharUpperW(round.text.data());
    const wchar_t* key = round.text.c_str();
    const bool value = round.kind(path) == 'v';
    std::unique_ptr<IRegistryItem> item(DllGetRegistryKey(HKEY_LOCAL_MACHINE, key));
    if (value)
        item.reset(DllGetRegistryValue(HKEY_LOCAL_MACHINE, key, valueName(path).c_str(), L"new"));
    if (!create || value)
        round.name(path);
    const unsigned long code = codeOf([&] { create ? item->create() : item->deleteItem(); });
    if (!create)
        round.done(path, code);
}

void scanRegistryAndDelete(Round& round)
{
    const std::string root = round.choices.oneIn(2) ? "registry/root" : round.target("registry/root", "k");
    round.plan({Trouble::cancel, Trouble::failingCall});
    round.text = keyPath(root);
    Deleter deleter(round, root, L"HKEY_LOCAL_MACHINE\\" + round.text);
    void* engine = CreateRegistryScanEngine(L"safety");
    RSEngineRegisterHandler(engine, deleter, kContainerFound, 0, 0);
    RSEngineRegisterHandler(engine, deleter, kLeafFound, 0, 0);
    RSEngineAddPath(engine, HKEY_LOCAL_MACHINE, round.text.c_str());
    ScanOptions options;
    options.depthGiven = 1;
    options.depth = 65535;
    RSEngineScan(engine, round.cancel.get(), everything(), options);
    RSEngineClear(engine);
    CloseRegistryScanEngine(engine);
    deleter.finish();
}

/// Each with its share of 100 rounds.
constexpr std::tuple<const char*, void (*)(Round&), unsigned> kOperations[] = {
    {"delete or create item", useItem, 39},
    {"scan and delete", scanAndDelete, 24},
    {"wipe file", wipeFile, 16},
    {"wipe directory stack", wipeStack, 9},
    {"change registry item", changeRegistryItem, 6},
    {"scan registry and delete", scanRegistryAndDelete, 6}};

unsigned seed = 1;
unsigned number = 0;
LONG WINAPI sayWhere(EXCEPTION_POINTERS* raised)
{
    std::printf("violation: --seed %u --round %u ended the program with %#lx\n", seed, number,
                raised->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}
} // namespace

int main(int argc, char** argv)
{
    const auto option = [&](const char* name, unsigned value) {
        for (int index = 2; index + 1 < argc; ++index)
            if (std::strcmp(argv[index], name) == 0)
                value = static_cast<unsigned>(std::strtoul(argv[index + 1], nullptr, 10));
        return value;
    };
    constexpr unsigned kAll = ~0U;
    seed = option("--seed", 1);
    number = option("--round", kAll);
    const unsigned rounds = number == kAll ? option("--rounds", 2000) : 1;
    number = number == kAll ? 0 : number;
    std::setvbuf(stdout, nullptr, _IONBF, 0); // nothing is lost with the program
    std::printf("%u rounds of seed %u\n", rounds, seed);
    SetUnhandledExceptionFilter(sayWhere);
    // Do not really wait for what is refused permanently.
    const ImportReplacement pauses(sysmaintModule(), "Sleep", reinterpret_cast<void*>(+[](DWORD) {}));
    unsigned unclean = 0;
    unsigned destroyed = 0;
    World world(argc > 1 ? argv[1] : "");
    takeBootList(); // of other tests
    for (const unsigned end = number + rounds; number < end; ++number) {
        Round round(world, seed, number);
        const auto* row = kOperations;
        for (unsigned share = round.choices.below(100); share >= std::get<unsigned>(*row); ++row)
            share -= std::get<unsigned>(*row);
        round.operation = std::get<const char*>(*row);
        std::get<1> (*row)(round);
        unclean += round.judge() ? 0 : 1;
        destroyed += round.destroyed ? 1 : 0;
    }
    std::printf("%u destroyed what was named, %u violations\n", destroyed, unclean);
    // A library that refuses everything would pass, but prove nothing.
    return unclean != 0 || (rounds > 1 && destroyed < rounds * 4 / 10) ? 1 : 0;
}
