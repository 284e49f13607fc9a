#pragma once

#include <memory>
#include <string>
#include <vector>

#include "win32/wiper/include/IWiper.h"

#include "Console.h"
#include "WipeTarget.h"

/// The user's options.
struct WipeOptions
{
    std::uint32_t method = kWipeZeros;
    std::uint32_t passes = 1;
    SharedPtr<IScanValidator> validator; // has no rules unless some are given
    bool hasRules = false;
    bool hardLinks = false;
    bool cloud = false;
    bool names = false;
    bool restorePoint = false; // created first, or nothing is done
    bool yes = false;
};

/// One run of the wiper: shows its progress, reports the outcome of each item by name, and counts.
class WipeRun
{
public:
    explicit WipeRun(const WipeOptions& options);

    /// Sets how much all the following calls will write in each pass.
    void expect(std::uint64_t bytes) { m_progress.total = bytes * m_options.passes; }
    /// The folder that contains all the following files and folders. If it or a folder below it is replaced
    /// with a link, nothing behind that is wiped (681).
    void setTree(const std::wstring& root) { m_tree = root; }
    /// Wipes one existing file, as a single one (kWipeFile) or as part of the tree, which never waits for the
    /// restart. True when it is gone with all its data.
    bool wipeFile(const std::wstring& path);
    /// Removes a folder that should be empty by now.
    bool removeFolder(const std::wstring& path);
    /// All passes over the free space of a drive, with the file table on request, or over the whole drive.
    void wipeFreeSpace(const std::wstring& drive, std::uint64_t bytes);
    void wipeVolume(const std::wstring& drive, std::uint64_t bytes);

    /// Reports that something could not be done.
    void fail(const std::wstring& path, const std::wstring& reason);
    void fail(const std::wstring& path, long code) { fail(path, formatCode(code)); }
    /// Reports that something stays on purpose; `asAsked`: by the user's own rules, which is not a failure.
    void leave(const std::wstring& path, const std::wstring& reason, bool asAsked);
    void cancel() { m_cancelled = true; }
    [[nodiscard]] bool isCancelled() const { return m_cancelled; }
    /// Prints the summary and returns the exit code. Without a subject it counts the files.
    int finish(const std::wstring& subject = L"");

private:
    struct Progress : WipeProgress
    {
        explicit Progress(WipeRun& owner) : run(owner) {}
        WipeRun& run;
    };
    static void onProgress(WipeProgress* progress);
    void show();
    long call(std::uint32_t kind, const std::wstring& path, DirectoryStack* stack, std::uint32_t passes);
    void tellLoss(const std::wstring& path, std::uint64_t size, std::uint64_t overwritten, long code);
    long wipeNames(const std::wstring& drive);
    void tellWaiting(const std::wstring& path, long code);

    const WipeOptions& m_options;
    std::unique_ptr<IWiper> m_wiper;
    Progress m_progress{*this};
    ProgressLine m_line;
    ULONGLONG m_begin = 0;          // of the first call
    std::uint64_t m_doneBefore = 0; // by earlier calls that counted separately
    std::uint64_t m_toCome = 0;     // by later calls
    std::uint64_t m_lastDone = 0;
    std::uint64_t m_lastStep = 0;
    std::uint64_t m_written = 0; // bytes, in all
    std::uint64_t m_factor = 1;  // writes of the method per repetition
    unsigned long long m_files = 0;
    unsigned long long m_lost = 0; // deleted, but not overwritten in full
    unsigned long long m_left = 0;
    unsigned long long m_leftUnasked = 0;
    unsigned long long m_failed = 0;
    unsigned long long m_waiting = 0;
    bool m_cancelled = false;
    std::wstring m_tree; // empty for single files
};

/// "1 file", "2 files"
std::wstring formatFiles(unsigned long long count);

/// The size of a file's main data; 0 when it does not exist.
std::uint64_t sizeOfFile(const std::wstring& literal);
/// Whether it no longer exists; false in doubt.
bool isGone(const std::wstring& literal);
