#pragma once

#include <memory>
#include <string>

/// The lines of the standard input, read on a thread of their own: a read that waits cannot be cancelled, and
/// may outlive this.
class InputLines
{
public:
    InputLines();

    /// The next line, without its end. False at the end of the input, and when the user ends the program.
    [[nodiscard]] bool next(std::string& line);

private:
    struct Reading;

    [[nodiscard]] bool readPiece();

    std::shared_ptr<Reading> m_reading;
    std::string m_rest; // what was read behind the last line
    bool m_hasEnded = false;
};
