#pragma once

#include "engine/ListLines.h"
#include "engine/NativeFile.h"
#include "engine/PageBlock.h"

/// The list of waiting files: UTF-16, a header of a 32-bit zero and a line end, one line per file. A list
/// without the header is accepted, too. Programs may append to it at any time.
///
/// While it is open, finished lines are overwritten in place with dashes, each by one flushed write, so a
/// power cut never loses another line or has one handled twice. Adjacent lines that may safely be handled
/// twice are written together and not flushed. Readers ignore dashed lines. At the end the list is rewritten
/// without them, or deleted when nothing is waiting. For that it is opened exclusively and then replaced: the
/// new list is complete under its own name before the old one is renamed, and `open` restores what it finds
/// under the old one's second name. So at every moment all waiting lines are in one complete file, and a
/// writer that comes in between loses none either.
class BootList
{
public:
    /// In this folder.
    BootList(const native::Api& api, const NativeFile& folder)
        : m_api(api), m_folder(folder), m_list(api), m_text(api)
    {
    }

    /// Repairs what an interrupted run left, opens the list and reads it. Waits for programs that are writing
    /// to it. kObjectNameNotFound when there is none.
    native::Status open();
    /// The lines as they were read.
    [[nodiscard]] ListLines lines() const
    {
        return ListLines({m_text.as<wchar_t>(), m_bytes / sizeof(wchar_t)});
    }
    /// Removes a line. `isLasting`: immediately and durably, because this run deleted its file.
    native::Status drop(const ListLine& line, bool isLasting);
    /// Moves a line to the end when the list is rewritten.
    void postpone(const ListLine& line) { m_postponed = line.offset; }
    /// Rewrites the list. `isEmpty`: nothing is waiting, and the list was deleted.
    native::Status close(bool& isEmpty);
    native::Status number(FileNumber& number) const { return m_list.number(number); }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    native::Status settle();
    native::Status rewrite(bool& isEmpty);
    native::Status recover();
    native::Status appendOld(const NativeFile& old);
    native::Status read(const NativeFile& file, PageBlock& text, std::size_t& bytes) const;
    std::size_t compose(wchar_t* target, bool& isChanged);
    native::Status exchange(NativeFile& list, const wchar_t* text, std::size_t length);

    const native::Api& m_api;
    const NativeFile& m_folder;
    NativeFile m_list; // for writing, shared with everybody who does not rename it
    PageBlock m_text;
    std::size_t m_bytes = 0;
    std::size_t m_postponed = kNone;
    std::size_t m_dashedFrom = 0; // characters that are dashes here but not yet in the file
    std::size_t m_dashedTo = 0;
};
