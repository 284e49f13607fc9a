#pragma once

#include "engine/NativeFile.h"
#include "engine/PageBlock.h"

/// The observer of a run. Each function may be null.
struct RunEvents
{
    void* context = nullptr;
    /// Whether to end the run: called before each file, each chunk and each of the 35 passes.
    bool (*isOver)(void* context) = nullptr;
    /// Whether to handle a line; otherwise it stays on the list.
    bool (*isWanted)(void* context, Text line) = nullptr;
    /// The current line, the number of lines, and how much of the current file is done.
    void (*onProgress)(void* context, std::uint32_t line, std::uint32_t lines, unsigned percent) = nullptr;
    /// Each line that is left, and why; `status` for a failed call.
    void (*onLeft)(void* context, Text line, Text reason, native::Status status) = nullptr;
};

/// Overwrites an open file with zeros (1), random text (2) or the 35 passes of Gutmann (3), in chunks of 1
/// MiB, each flushed, as often as the line says, with the same bytes as the wiper.
class Overwriter
{
public:
    static constexpr std::uint32_t kChunk = 1048576;

    explicit Overwriter(const native::Api& api) : m_buffer(api), m_api(api) {}

    /// Allocates the buffers. The text of method 2 is the same in all chunks of a run.
    native::Status prepare();

    /// Reports the percentage after each chunk. kTimeout when the run ends before the file is done.
    native::Status overwrite(const NativeFile& file, std::uint64_t size, std::uint32_t method,
                             std::uint32_t passes, const RunEvents& events, std::uint32_t line,
                             std::uint32_t lines);
    /// Bytes of files overwritten, each counted once per repetition.
    [[nodiscard]] std::uint64_t written() const { return m_written; }

    static constexpr native::Status kTimeout = 0x102;

private:
    native::Status overwriteChunk(const NativeFile& file, std::uint64_t offset, std::uint32_t size,
                                  std::uint32_t method, const RunEvents& events);
    void fillRandomText(unsigned char* bytes, std::uint32_t length);

    PageBlock m_buffer;
    const native::Api& m_api;
    std::uint64_t m_random = 1;
    std::uint64_t m_written = 0;
};
