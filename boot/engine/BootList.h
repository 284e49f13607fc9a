#pragma once

#include "engine/ListLines.h"
#include "engine/NativeFile.h"
#include "engine/PageBlock.h"

/// The list of the files that wait: UTF-16, a header of a 32-bit zero and a line end, one line a file. A list
/// without the header is taken, too. Programs may append to it at any time.
///
/// While it is open, lines that are done with are overwritten in place by dashes, each by one write that is
/// flushed, so that a power cut neither loses another line nor has one done twice. Neighbours that may be
/// done twice without harm are written together and not flushed. A dashed line is nothing to any reader. In
/// the end the list is written anew without them, or deleted when nothing waits any more. For that it is held
/// alone, and then exchanged: the new list is complete under a name of its own before the old one gives up
/// the name, and what `open` finds under the old one's second name is put back. So at every moment all lines
/// that wait are in one whole file, and a writer that comes in between loses none either.
class BootList
{
public:
    /// In this folder.
    BootList(const native::Api& api, const NativeFile& folder)
        : m_api(api), m_folder(folder), m_list(api), m_text(api)
    {
    }

    /// Mends what a run left that was cut short, opens the list and reads it. Waits for programs that are
    /// writing to it. kObjectNameNotFound when there is none.
    native::Status open();
    /// The lines as they were read.
    [[nodiscard]] ListLines lines() const
    {
        return ListLines({m_text.as<wchar_t>(), m_bytes / sizeof(wchar_t)});
    }
    /// Takes a line off. `isLasting`: now, and for good, because its file is gone by our doing.
    native::Status drop(const ListLine& line, bool isLasting);
    /// Moves a line behind all others when the list is written anew.
    void postpone(const ListLine& line) { m_postponed = line.offset; }
    /// Writes the list anew. `isEmpty`: nothing waits any more, and the list is gone.
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
    NativeFile m_list; // for writing, shared with everybody that does not rename it
    PageBlock m_text;
    std::size_t m_bytes = 0;
    std::size_t m_postponed = kNone;
    std::size_t m_dashedFrom = 0; // characters that are dashes here and not yet in the file
    std::size_t m_dashedTo = 0;
};
