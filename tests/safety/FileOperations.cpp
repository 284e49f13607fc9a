#include <algorithm>

#include "safety/Round.h"
#include "support/FolderExchange.h"
#include "support/Wipe.h"

namespace {
using FilePtr = std::unique_ptr<IFile>;
using FolderPtr = std::unique_ptr<IDirectory>;

/// The round that the wiper's callback, a plain function, belongs to.
Round* wipingRound = nullptr;
void onProgress(WipeProgress*)
{
    wipingRound->moment();
}

/// One call of the wiper with random settings.
long wipe(Round& round, std::uint32_t kind, const wchar_t* path, DirectoryStack* stack,
          const IScanValidator* validator)
{
    wipingRound = &round;
    WipeProgress progress;
    const std::unique_ptr<IWiper> wiper(DllGetWiper());
    const std::uint32_t method = round.choices.oneIn(8) ? kWipeGutmann : 1 + round.choices.below(2);
    return wiper->Wipe(onProgress, &progress, kind, path, stack, validator, method, round.choices.below(3),
                       round.cancelEvent());
}

/// Whether the rules that rounds use, "report*" for the names of leaves, are about the thing.
bool isReport(const std::string& path)
{
    return path.compare(path.find_last_of("/:") + 1, 6, "report") == 0;
}

bool isEmpty(const Round& round, const std::string& folder)
{
    return round.within(folder).size() == 1;
}

/// Deletes what a scan has found, or some of it, when it is found or when all is.
class Deleter : public INotifyHandler
{
public:
    Deleter(Round& round, std::string root)
        : m_round(round), m_root(std::move(root)), m_length(round.form.text.size()),
          m_later(round.choices.oneIn(2)), m_wipes(round.choices.oneIn(4))
    {
    }
    void onNotify(const Notification&, const SharedPtr<ScanItem>& item) override
    {
        m_round.moment();
        const std::string path = thing(*item);
        if (path.empty() || m_round.choices.oneIn(3))
            return;
        if (m_later)
            m_found.emplace_back(path, item);
        else
            destroy(path, *item);
    }
    /// What was kept, from the back, so that folders come after what was in them.
    void finish()
    {
        for (; !m_found.empty(); m_found.pop_back()) {
            m_round.moment();
            destroy(m_found.back().first, *m_found.back().second);
        }
    }
    bool m_ignoresReports = false;

private:
    /// The thing that an item stands for. None: it was not there to be found.
    std::string thing(const ScanItem& item)
    {
        const std::wstring text = item.getPath();
        std::wstring names = text.substr(std::min(m_length, text.size()));
        names.erase(0, names.find_first_not_of(L"\\/"));
        std::string path = m_root + "/" + utf8(names);
        std::replace(path.begin(), path.end(), '\\', '/');
        const char kind = m_round.kind(path);
        const bool folder = item.getType() == kDirectoryItem;
        if (text.compare(0, m_length, m_round.form.text) == 0 &&
            (folder ? kind == 'd' || kind == 'l' : kind == 'f') &&
            !(m_ignoresReports && !folder && isReport(path)))
            return path;
        m_round.violation("found " + utf8(text));
        return {};
    }
    void destroy(const std::string& path, ScanItem& item)
    {
        // The text alone does not tell what it was relative to.
        const bool wipes = m_wipes && m_round.trouble != Trouble::otherFolder && m_round.kind(path) == 'f';
        m_round.name(path, wipes);
        unsigned long code = ERROR_SUCCESS;
        if (wipes) {
            code = static_cast<unsigned long>(wipe(m_round, kWipeFile, item.getPath(), nullptr, nullptr));
            m_round.waits(path, static_cast<long>(code));
        } else {
            code = codeOf([&] { dynamic_cast<IFileSystemItem&>(item).deleteItem(); });
        }
        if (code == ERROR_SUCCESS)
            m_round.claimGone(path);
    }

    Round& m_round;
    std::string m_root;
    std::size_t m_length;
    bool m_later;
    bool m_wipes;
    std::vector<std::pair<std::string, SharedPtr<ScanItem>>> m_found;
};
} // namespace

void deleteFileItem(Round& round)
{
    const std::string path = round.target("root", "fffffdl-");
    round.plan({Trouble::otherFolder, Trouble::failingCall});
    const std::wstring& text = round.write(path, false);
    FilePtr file;
    void* handle = nullptr;
    SharedPtr<ScanItem> filed;
    if (round.choices.oneIn(3)) {
        handle = CreateFileW(L"safety", text.c_str(), 0);
        GetScanItemByHandle(handle, filed);
    } else {
        file.reset(DllGetFile(text.c_str(), 0));
    }
    auto* item = file ? file.get() : dynamic_cast<IFile*>(filed.get());
    round.moment();
    if (round.kind(path) == 'f' || round.kind(path) == 'l')
        round.name(path);
    if (item != nullptr && codeOf([&] { item->deleteItem(); }) == ERROR_SUCCESS)
        round.claimGone(path);
    CloseScanItem(handle);
}

void deleteFolderItem(Round& round)
{
    const std::string path = round.choices.oneIn(3)
                                 ? round.choices.of(std::vector<std::string>{"root/sub", "root/empty."})
                                 : round.target("root", "dddlf-");
    round.plan(
        {Trouble::otherFolder, Trouble::failingCall, path == "root/sub" ? Trouble::link : Trouble::none});
    const FolderPtr folder(DllGetDirectory(round.write(path, true).c_str(), 0));
    round.moment();
    const bool link = round.kind(path) == 'l' || (path == "root/sub" && round.trouble == Trouble::link);
    if (link || (round.kind(path) == 'd' && isEmpty(round, path)))
        round.name(path);
    if (folder && codeOf([&] { folder->deleteItem(); }) == ERROR_SUCCESS)
        round.claimGone(path);
}

void createItem(Round& round)
{
    const std::string path = round.target("root", "fffdl--");
    const unsigned kind = round.choices.below(4);
    round.plan({Trouble::otherFolder, Trouble::failingCall});
    const std::wstring& text = round.write(path, kind == 0);
    if (round.kind(path) == '-')
        round.mayAppear.insert(path);
    if (kind == 0) {
        const FolderPtr folder(DllGetDirectory(text.c_str(), 0));
        round.moment();
        codeOf([&] { folder->create(); });
        return;
    }
    const FilePtr file(DllGetFile(text.c_str(), 0));
    round.moment();
    if (kind == 1) { // asking a missing file for its data makes it
        unsigned long long size = 0;
        codeOf([&] { file->getData(size); });
        return;
    }
    const std::string data = kind == 2 ? "new" : "";
    file->setData(data.data(), data.size());
    if (round.kind(path) == 'f')
        round.name(path, true);
    if (codeOf([&] { file->create(); }) == ERROR_SUCCESS)
        round.claimContent(path, data);
}

void scanAndDelete(Round& round)
{
    const std::string root = round.choices.oneIn(2) ? "root" : round.target("root", "d");
    const bool aboveLink = root == "root";
    round.plan({Trouble::otherFolder, Trouble::cancel, Trouble::failingCall,
                aboveLink ? Trouble::link : Trouble::otherFolder,
                aboveLink ? Trouble::link : Trouble::cancel});
    const std::wstring& text = round.write(root, true);
    Deleter deleter(round, root);
    deleter.m_ignoresReports = round.choices.oneIn(3);
    const TestEngine engine(deleter, L"safety");
    if (FSEngineAddPath(engine.handle, text.c_str(), 0) != ERROR_SUCCESS)
        return;
    round.moment();
    engine.rescan(round.choices.oneIn(3) ? 1 + round.choices.below(3) : 65535, round.cancelEvent(), L"",
                  deleter.m_ignoresReports ? L"report*" : L"");
    deleter.finish();
    FSEngineClear(engine.handle);
}

void wipeFile(Round& round)
{
    const std::string path = round.target("root", "ffffffdl-");
    const char kind = round.kind(path);
    round.plan({Trouble::otherFolder, Trouble::cancel, Trouble::failingCall});
    const std::wstring& text = round.write(path, false);
    const bool refused = round.choices.oneIn(5) && isReport(path);
    const std::unique_ptr<IScanValidator> validator(DllGetScanValidator(L"", L"report*"));
    if (kind == 'f' || kind == 'l')
        refused ? void() : round.name(path, kind == 'f');
    const bool locked = round.choices.oneIn(8);
    const HANDLE lock = locked ? round.lock(path) : nullptr;
    const long code = wipe(round, kWipeFile, text.c_str(), nullptr, refused ? validator.get() : nullptr);
    if (!refused)
        round.waits(path, code);
    if (code == ERROR_SUCCESS && !refused)
        round.claimGone(path);
    CloseHandle(lock);
}

void wipeStack(Round& round)
{
    const std::string root = round.choices.oneIn(2) ? "root" : round.target("root", "d");
    round.plan({Trouble::otherFolder, Trouble::cancel, Trouble::failingCall,
                root == "root" ? Trouble::link : Trouble::cancel});
    const std::wstring text = round.write(root, true);
    DirectoryStack stack;
    std::vector<std::string> wiped;
    const bool whole = round.choices.oneIn(2);
    for (const std::string& path : round.within(root)) {
        std::wstring names(path.begin() + static_cast<std::ptrdiff_t>(std::min(root.size() + 1, path.size())),
                           path.end());
        std::replace(names.begin(), names.end(), L'/', L'\\');
        const bool closed = text.back() == L'\\' || text.back() == L'/';
        const std::wstring base = closed || text == L"Z:" ? text : text + L"\\";
        const std::size_t last = names.find_last_of(L'\\');
        const std::wstring folder = last == std::wstring::npos ? text : base + names.substr(0, last);
        const bool skip = !whole && round.choices.oneIn(3);
        if (round.kind(path) == 'f')
            stack.push_back(
                {HeapStringW(names.substr(last + 1).c_str()), HeapStringW(folder.c_str()), false, skip});
        else
            stack.push_back({HeapStringW((names.empty() ? text : base + names).c_str()), L"", true, skip});
        if (skip)
            continue;
        round.name(path, round.kind(path) == 'f');
        wiped.push_back(path);
    }
    if (round.trouble == Trouble::link)
        round.moment(); // what relative paths mean is settled by the call
    if (wipe(round, kWipeDirectoryStack, text.c_str(), &stack, nullptr) == ERROR_SUCCESS)
        for (const std::string& path : wiped)
            round.claimGone(path);
}
