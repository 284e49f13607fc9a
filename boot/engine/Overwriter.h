#pragma once

#include "engine/NativeFile.h"
#include "engine/PageBlock.h"

/// Who watches a run. Each function may be null.
struct RunEvents
{
    void* context = nullptr;
    /// Whether the run is to end: asked before each file, each chunk and each of the 35 passes.
    bool (*isOver)(void* context) = nullptr;
    /// Whether a line is to be handled; one that is not stays on the list.
    bool (*isWanted)(void* context, Text line) = nullptr;
    /// Lines looked at and lines in all, and how much of the file in hand is done.
    void (*onProgress)(void* context, std::uint32_t line, std::uint32_t lines, unsigned percent) = nullptr;
    /// Each line that is left, and why; `status` for a failed call.
    void (*onLeft)(void* context, Text line, Text reason, native::Status status) = nullptr;
};

/// Overwrites what is open: zeros (1), random text (2) or the 35 passes of Gutmann (3), in chunks of 1 MiB
/// that are flushed one by one, as often as the line says, with the same bytes as the wiper.
class Overwriter
{
public:
    static constexpr std::uint32_t kChunk = 1048576;

    explicit Overwriter(const native::Api& api) : m_buffer(api), m_api(api) {}

    /// Makes the buffers. The text of method 2 is the same in all chunks of a run.
    native::Status prepare();

    /// `percent` is told as the chunks go by. kTimeout when the run is over before the file is.
    native::Status overwrite(const NativeFile& file, std::uint64_t size, std::uint32_t method,
                             std::uint32_t passes, const RunEvents& events, std::uint32_t line,
                             std::uint32_t lines);
    /// Bytes of files that were overwritten, each counted once in each repetition.
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
