#include "engine/Overwriter.h"

#include "core/win32/utils/wiper/include/FillPasses.h"

namespace {
constexpr std::uint32_t kRoom = Overwriter::kChunk + sizeof(wchar_t); // text ends with a zero

bool isOver(const RunEvents& events)
{
    return events.isOver != nullptr && events.isOver(events.context);
}
} // namespace

native::Status Overwriter::prepare()
{
    const native::Status status = m_buffer.allocate(3 * static_cast<std::size_t>(kRoom));
    if (status < 0)
        return status;
    LARGE_INTEGER time{};
    m_api.systemTime(&time);
    m_random = static_cast<std::uint64_t>(time.QuadPart) | 1U;
    fillRandomText(m_buffer.as<unsigned char>() + kRoom, kChunk);
    return native::kSuccess;
}

/// Letters and digits, each followed by a zero; with an odd length the last byte belongs to the terminator.
void Overwriter::fillRandomText(unsigned char* bytes, std::uint32_t length)
{
    for (std::uint32_t i = 0; i < length; ++i) {
        // xorshift64*: Sebastiano Vigna, "An experimental exploration of Marsaglia's xorshift generators,
        // scrambled", ACM Transactions on Mathematical Software 42, 2016.
        if (i % 2 == 0) {
            m_random ^= m_random >> 12U;
            m_random ^= m_random << 25U;
            m_random ^= m_random >> 27U;
        }
        const std::uint64_t drawn = (m_random * 0x2545F4914F6CDD1DULL) >> 33U;
        const bool isCharacter = i % 2 == 0 && i + 1 < length;
        bytes[i] =
            isCharacter
                ? static_cast<unsigned char>(fillpattern::kAlphabet[drawn % fillpattern::kAlphabetSize])
                : 0;
    }
}

native::Status Overwriter::overwrite(const NativeFile& file, std::uint64_t size, std::uint32_t method,
                                     std::uint32_t passes, const RunEvents& events, std::uint32_t line,
                                     std::uint32_t lines)
{
    const std::uint64_t chunks = (size + kChunk - 1) / kChunk * passes;
    std::uint64_t done = 0;
    for (std::uint32_t pass = 0; pass < passes; ++pass) {
        for (std::uint64_t offset = 0; offset < size; offset += kChunk) {
            const std::uint64_t rest = size - offset;
            const std::uint32_t chunk = rest < kChunk ? static_cast<std::uint32_t>(rest) : kChunk;
            const native::Status status = overwriteChunk(file, offset, chunk, method, events);
            if (status != native::kSuccess)
                return status;
            m_written += chunk;
            if (events.onProgress != nullptr)
                events.onProgress(events.context, line, lines, static_cast<unsigned>(++done * 100 / chunks));
        }
    }
    return native::kSuccess;
}

native::Status Overwriter::overwriteChunk(const NativeFile& file, std::uint64_t offset, std::uint32_t size,
                                          std::uint32_t method, const RunEvents& events)
{
    auto* zeros = m_buffer.as<unsigned char>();
    unsigned char* text = zeros + kRoom;
    unsigned char* work = text + kRoom;
    const std::uint32_t rounds = method == 3 ? fillpattern::kGutmannPasses : 1;
    for (std::uint32_t round = 0; round < rounds; ++round) {
        if (isOver(events))
            return kTimeout;
        const unsigned char* bytes = method == 1 ? zeros : text;
        if (method == 3) {
            const fillpattern::Pass& pass = fillpattern::kPasses[round];
            if (pass.period == 0)
                fillRandomText(work, size);
            else
                fillpattern::fillRepeated(work, size, pass.bytes, pass.period);
            bytes = work;
        }
        native::Status status = file.write(offset, bytes, size);
        if (status >= 0)
            status = file.flush();
        if (status < 0)
            return status;
    }
    return native::kSuccess;
}
