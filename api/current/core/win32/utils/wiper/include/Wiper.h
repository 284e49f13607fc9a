#pragma once

#include <memory>
#include <string>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "win32/wiper/include/IWiper.h"

class WipeTarget;

/// See IWiper for what its operations promise.
class Wiper final : public IWiper
{
public:
    /// Bytes written between two flushes.
    static constexpr std::uint32_t kChunkSize = 1048576;

    long Wipe(WipeCallback callback, WipeProgress* progress, std::uint32_t kind, const wchar_t* path,
              DirectoryStack* stack, const IScanValidator* validator, std::uint32_t method,
              std::uint32_t passes, HANDLE cancelEvent) override;
    [[nodiscard]] std::uint32_t getNeedsReboot() const override { return m_needsReboot; }
    void setNeedsReboot(std::uint32_t value) override { m_needsReboot = value; }

    /// Fills `length` bytes for a pass of the Gutmann method, 0 to 34; other passes leave the buffer
    /// unchanged. Returns 0. Raises an Exception with 8.
    static long GuttmanProcess(std::uint32_t pass, unsigned char* buffer, std::size_t length);

private:
    class Filler;
    class Fillers;

    long runKind(const wchar_t* path, DirectoryStack* stack, const IScanValidator* validator);
    void wipeFreeSpaceRepeatedly(const wchar_t* path);
    long wipePartitionOrAskForRestart(const wchar_t* path);
    long WipeFile(const std::wstring& path);
    long WipeFreeSpace(const std::wstring& folder, const std::wstring& fillerPath);
    void WipePartition(const wchar_t* path);
    long WipeDirectoryStack(const std::wstring& root, DirectoryStack& stack);
    long wipeFolder(const std::wstring& path);

    void overwriteAndDelete(const std::wstring& path);
    std::wstring renameFile(const wchar_t* path) const;
    bool wipeStreams(const std::wstring& path, const wchar_t* target, const WipeTarget& found);
    void overwriteRepeatedly(HANDLE file, std::uint64_t size, bool isSparse);
    void overwriteRange(HANDLE file, std::uint64_t begin, std::uint64_t end);
    void allocateBuffers();
    void overwriteChunk(HANDLE file, std::uint64_t offset, std::uint32_t size);
    void writeAndFlush(HANDLE file, const void* data, std::uint32_t size);
    bool fillOn(Fillers& fillers, std::uint32_t size);
    void correctTotal(std::uint64_t expected, std::uint64_t found) noexcept;
    void addDone(std::uint64_t bytes);
    void schedule(const std::wstring& path);
    /// Whether what could not be deleted with this code goes on the boot-time list: not when it is another
    /// file or a link, missing or being deleted, because a later file with its name would be destroyed.
    [[nodiscard]] static bool isWorthScheduling(long code) noexcept;
    void throwIfCancelled(const char* place) const;

    WipeCallback m_callback = nullptr;
    WipeProgress* m_progress = nullptr;
    std::uint32_t m_passes = 0;
    std::uint32_t m_method = 0;
    bool m_takesCloudFiles = false;
    std::uint32_t m_needsReboot = 0;
    HANDLE m_cancelEvent = nullptr;
    std::uint32_t m_kind = 0;
    bool m_isRunning = false;
    ModuleHandle m_ntdll;
    // What the current call writes; allocated for its first chunk.
    std::unique_ptr<unsigned char[]> m_buffer;
    std::unique_ptr<wchar_t[]> m_randomText;
};
