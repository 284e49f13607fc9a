#include "Command.h"
#include "Console.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

#include "ProtectedFolders.h"
#include "RestorePoint.h"
#include "Rules.h"
#include "ShadowCopies.h"
#include "TreeListing.h"
#include "WipeRun.h"

namespace {
constexpr const wchar_t* kHelp =
    LR"(usage: sysmaint wipe file PATH... | tree FOLDER | free DRIVE | volume DRIVE
                [--method zeros|random|gutmann] [--passes N] [--filter TEXT] [--ignore TEXT]
                [--hard-links] [--cloud] [--names] [--restore-point] [--yes]

Overwrites data and deletes it. What it will do is shown first, and it asks before it begins.

  file     single files. One that cannot be opened goes on the list of files that are overwritten and
           deleted at the restart ('sysmaint boot list'), if that can be written.
  tree     a folder with everything in it. With --filter or --ignore only the files that these let
           through; then the folders stay. Links are removed, what they lead to is not touched. Nothing
           is wiped when a folder in it cannot be listed.
  free     what deleted files left in a drive's free space
  volume   everything on a drive, which must not be in use

  --method   zeros (the default), random (text of letters and digits), gutmann (35 passes)
  --passes   how often, 1 to 1000; 1 is the default
  --filter, --ignore   as for 'sysmaint scan'
  --hard-links   also files that have other names (hard links). All names share the data: the file is empty
             under the others then. Without this option such files are named and left alone.
  --cloud    also files whose content is elsewhere, which the system fetches first
  --names    with free: also the names of deleted files, and the contents of very small ones, that the table
             of files still holds. Fills it with small files and deletes them again; done once.
  --restore-point   make a restore point of the system first, and do nothing without it
  --yes      do not ask

A wipe that is cancelled, with Ctrl+C or because the console or the session ends, deletes the file in hand
all the same: how much of it was not overwritten is said.

What overwriting in place does not reach: shadow copies, into which the old content goes; volumes that copy on
write or hold equal data once (ReFS, deduplication); files that the system has compressed; the spare blocks of
flash drives; journals; the names of deleted files and the contents of very small ones in the table of files
(see --names). Files whose content is in the cloud are left alone; with --cloud they are fetched and wiped.

Roots of drives, shares and volumes are refused, the Windows folder and what is in it, the folders of programs
and their data, that of the users' profiles, each profile as a whole, and what any of these is in, by whatever
name; so is the volume that one of them is on.

Exit codes: 0 all was wiped, 1 something was not, or nothing because the answer was not yes, 2 wrong
arguments, 130 cancelled.

example: sysmaint wipe tree "C:\Temp\old reports" --method random --passes 3
)";

/// Keeps a folder from being renamed or replaced. This needs an access right that counts for sharing.
OwnedHandle holdFolder(const std::wstring& literal, DWORD flags = 0)
{
    return OwnedHandle(::CreateFileW(literal.c_str(), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                     flags | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

constexpr const wchar_t* kAnother = L"left alone, because it is not what was shown any more";

/// Shows what is about to happen and asks.
Answer confirm(const WipeOptions& options, const std::wstring& what, bool files)
{
    constexpr const wchar_t* kMethods[] = {L"", L"zeros", L"random text", L"the 35 passes of Gutmann"};
    messages().writeLine(what + L"; " + kMethods[options.method] + L", " + formatCount(options.passes) +
                         (options.passes == 1 ? L" time" : L" times"));
    if (files)
        messages().writeLine(L"Cancelling deletes the file in hand without overwriting the rest of it.");
    messages().flush();
    Answer answer = options.yes ? Answer::kYes : ask(L"This cannot be undone. Go on? Type yes: ");
    if (answer == Answer::kYes && options.restorePoint && !makeRestorePointFirst(L"wipe"))
        answer = Answer::kNo;
    if (answer == Answer::kYes && isCancelled()) // while the restore point was created
        answer = Answer::kCancelled;
    if (answer != Answer::kYes)
        messages().writeLine(L"nothing was wiped");
    return answer;
}

int exitCodeOf(Answer answer)
{
    return answer == Answer::kCancelled ? kExitCancelled : kExitFailed;
}

/// Whether a file or folder may be deleted: it exists, is the one that was `shown` if something was, and has
/// no other name. Otherwise prints why not.
bool mayGo(WipeRun& run, const WipeOptions& options, const std::wstring& path, const FoundFile& found,
           const FileIdentity* shown = nullptr)
{
    if (found.names == 0) {
        run.fail(path, found.code);
        return false;
    }
    if (shown != nullptr && !found.isSame(*shown)) {
        run.leave(path, kAnother, false);
        return false;
    }
    if (found.names > 1 && !options.hardLinks) {
        run.leave(path,
                  L"left alone, because the file has " + formatCount(found.names) +
                      L" names (see --hard-links)",
                  false);
        return false;
    }
    return true;
}

int wipeFiles(const WipeOptions& options, const std::vector<std::wstring>& words)
{
    std::vector<WipeTarget> targets;
    std::vector<FileIdentity> shown;
    std::vector<OwnedHandle> held;
    WipeRun run(options);
    std::uint64_t bytes = 0;
    for (const std::wstring& word : words) {
        if (!word.empty() && (word.back() == L'\\' || word.back() == L'/'))
            throw UsageError{printable(word) + L" is written as a folder; say tree"};
        const WipeTarget target(word);
        held.push_back(holdFolder(target.parent()));
        requireUnprotected(target);
        const DWORD attributes = GetFileAttributesW(target.literal().c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
            throw UsageError{printable(word) + L" is a folder; say tree"};
        const FoundFile found = findFile(target.literal());
        if (!mayGo(run, options, target.text(), found))
            continue;
        const auto isNamedAlready = [&](const WipeTarget& other) {
            return found.isSame(shown[static_cast<std::size_t>(&other - targets.data())]) &&
                   (found.names == 1 || _wcsicmp(other.literal().c_str(), target.literal().c_str()) == 0);
        };
        if (std::any_of(targets.begin(), targets.end(), isNamedAlready))
            continue;
        messages().writeLine(L"  " + printable(target.text()));
        bytes += sizeOfFile(target.literal());
        targets.push_back(target);
        shown.push_back(found.identity);
    }
    if (targets.empty())
        return run.finish();
    const Answer answer =
        confirm(options, L"wipe " + formatFiles(targets.size()) + L", " + formatBytes(bytes), true);
    if (answer != Answer::kYes)
        return exitCodeOf(answer);
    run.expect(bytes);
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const std::wstring& path = targets[i].text();
        if (isCancelled()) {
            run.cancel();
            run.leave(path, L"cancelled, it is still there", true);
        } else if (mayGo(run, options, path, findFile(targets[i].literal()),
                         &shown[i])) { // check again: a name may have been added
            run.wipeFile(path);
        }
    }
    return run.finish();
}

/// Shows the first files to be deleted, by name, and all that have other names.
void showListed(const TreeListing& listing, const WipeOptions& options)
{
    constexpr unsigned long long kMost = 20;
    unsigned long long shown = 0;
    for (const DirectoryStackEntry& entry : listing.entries)
        if (!entry.isDirectory && !entry.skip && shown++ < kMost)
            messages().writeLine(L"  " + printable(pathOf(entry)));
    if (shown > kMost)
        messages().writeLine(L"  and " + formatCount(shown - kMost) + L" more");
    for (const std::wstring& path : listing.linked)
        messages().writeLine((options.hardLinks ? L"has other names, under which it will be empty: "
                                                : L"has other names and stays (see --hard-links): ") +
                             printable(path));
}

/// Wipes from the back. What cannot be deleted stays, together with its folders.
void wipeListed(TreeListing& listing, const WipeOptions& options, WipeRun& run, OwnedHandle& root)
{
    std::unordered_set<std::wstring> kept;
    const auto keep = [&](const std::wstring& path) {
        for (std::size_t at = path.find_last_of(L'\\'); at != std::wstring::npos && at != 0;
             at = path.find_last_of(L'\\', at - 1))
            if (!kept.insert(path.substr(0, at)).second)
                break;
    };
    for (DirectoryStack& entries = listing.entries; !entries.empty();
         entries.pop_back(), listing.identities.pop_back()) {
        if (isCancelled()) {
            run.cancel();
            break;
        }
        const DirectoryStackEntry& top = entries.back();
        const FileIdentity& shown = listing.identities.back();
        const std::wstring path = pathOf(top);
        bool stays = false;
        if (entries.size() == 1)
            root.reset(); // it may be deleted last
        const auto mayBeWiped = [&] {
            return mayGo(run, options, path, findFile(literalPath(path)), &shown);
        };
        if (top.isDirectory)
            stays = !top.skip && kept.count(path) == 0 && !(mayBeWiped() && run.removeFolder(path));
        else if (top.skip)
            run.leave(path, L"left alone, because it has other names", false), stays = true;
        else
            stays = !mayBeWiped() || !run.wipeFile(path);
        if (stays)
            keep(path);
    }
    const auto untouched =
        std::count_if(listing.entries.begin(), listing.entries.end(),
                      [](const DirectoryStackEntry& entry) { return !entry.isDirectory && !entry.skip; });
    if (run.isCancelled())
        messages().writeLine(L"wipe: not begun: " + formatFiles(static_cast<unsigned long long>(untouched)));
}

int wipeTree(const WipeOptions& options, const std::wstring& word)
{
    const WipeTarget target(word);
    const OwnedHandle parent = holdFolder(target.parent());
    OwnedHandle root = holdFolder(target.literal(), FILE_FLAG_OPEN_REPARSE_POINT);
    const FileIdentity shown = findFile(target.literal()).identity;
    requireUnprotected(target);
    WipeRun run(options);
    const DWORD attributes = GetFileAttributesW(target.literal().c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        throw UsageError{printable(word) + L" is no folder; say file"};
    TreeListing listing;
    if (!options.hasRules) {
        listing.entries.push_back({HeapStringW(target.text().c_str()), L"", true, false});
        listing.identities.push_back(shown);
    }
    // A link is removed; its target is not touched.
    const long code = isLink(target.literal()) ? ERROR_SUCCESS
                                               : listTree(target.text(), options.validator, options.hasRules,
                                                          options.hardLinks, listing);
    for (const Failure& failure : listing.failures)
        run.fail(failure.path, failure.code);
    if (code == ERROR_CANCELLED)
        run.cancel();
    else if (code != ERROR_SUCCESS && listing.failures.empty())
        run.fail(target.text(), code);
    if (code != ERROR_SUCCESS || !listing.failures.empty())
        return run.finish();
    showListed(listing, options);
    const Answer answer = confirm(options,
                                  L"wipe " + printable(target.text()) + L": " + formatFiles(listing.files) +
                                      L", " + formatBytes(listing.bytes),
                                  true);
    if (answer != Answer::kYes)
        return exitCodeOf(answer);
    if (!findFile(target.literal()).isSame(shown)) {
        run.leave(target.text(), kAnother, false);
        return run.finish();
    }
    run.expect(listing.bytes);
    run.setTree(target.text());
    wipeListed(listing, options, run, root);
    return run.finish();
}

int wipeDrive(const WipeOptions& options, const std::wstring& drive, bool whole)
{
    if (whole)
        requireUnprotectedDrive(drive);
    WipeRun run(options);
    const std::wstring subject = (whole ? L"everything on " : L"the free space of ") + drive;
    ULARGE_INTEGER size{};
    ULARGE_INTEGER free{};
    if (!GetDiskFreeSpaceExW(drive.c_str(), nullptr, &size, &free)) {
        run.fail(drive, static_cast<long>(GetLastError()));
        return run.finish(subject);
    }
    if (!whole && hasShadowCopies(drive))
        messages().writeLine(
            L"The volume holds shadow copies (restore points, previous versions). Filling it drives "
            L"them out; until then they keep what deleted files held.");
    const std::uint64_t bytes = whole ? size.QuadPart : free.QuadPart;
    const Answer answer =
        confirm(options,
                L"wipe " + (whole ? L"EVERYTHING on " + drive : subject) + L", " + formatBytes(bytes), false);
    if (answer != Answer::kYes)
        return exitCodeOf(answer);
    if (whole)
        run.wipeVolume(drive, bytes);
    else
        run.wipeFreeSpace(drive, bytes);
    return run.finish(subject);
}

WipeOptions optionsOf(const Arguments& arguments)
{
    WipeOptions options;
    const std::wstring method = arguments.value(L"--method", L"zeros");
    constexpr const wchar_t* kNames[] = {L"zeros", L"random", L"gutmann"};
    const auto* const named = std::find(std::begin(kNames), std::end(kNames), method);
    if (named == std::end(kNames))
        throw UsageError{L"--method takes zeros, random or gutmann"};
    options.method = kWipeZeros + static_cast<std::uint32_t>(named - std::begin(kNames));
    options.passes = arguments.number(L"--passes", 1, 1000).value_or(1);
    options.yes = arguments.has(L"--yes");
    options.hardLinks = arguments.has(L"--hard-links");
    options.cloud = arguments.has(L"--cloud");
    options.names = arguments.has(L"--names");
    options.restorePoint = arguments.has(L"--restore-point");
    options.hasRules = arguments.has(L"--filter") || arguments.has(L"--ignore");
    options.validator = makeValidator(arguments);
    return options;
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--method", true},
                                      {L"--passes", true},
                                      {L"--filter", true},
                                      {L"--ignore", true},
                                      {L"--hard-links", false},
                                      {L"--cloud", false},
                                      {L"--names", false},
                                      {L"--restore-point", false},
                                      {L"--yes", false}});
    if (arguments.operands().size() < 2)
        throw UsageError{L"wipe what? file, tree, free or volume, and which"};
    const std::wstring what = arguments.operands()[0];
    const std::vector<std::wstring> targets(arguments.operands().begin() + 1, arguments.operands().end());
    const bool ofFiles = what == L"file" || what == L"tree";
    if (!ofFiles && what != L"free" && what != L"volume")
        throw UsageError{L"unknown: " + printable(what) + L"; file, tree, free or volume"};
    if (what != L"file" && targets.size() != 1)
        throw UsageError{L"one at a time, please"};
    const WipeOptions options = optionsOf(arguments);
    if (!ofFiles && (options.hasRules || options.hardLinks || options.cloud))
        throw UsageError{L"--filter, --ignore, --hard-links and --cloud are for files and trees"};
    if (options.names && what != L"free")
        throw UsageError{L"--names is for free"};
    if (ofFiles)
        return what == L"file" ? wipeFiles(options, targets) : wipeTree(options, targets[0]);
    return wipeDrive(options, requireDrive(targets[0]), what == L"volume");
}
} // namespace

const Command kWipeCommand = {L"wipe", L"overwrite and delete files, trees, free space, volumes", kHelp,
                              &run};
