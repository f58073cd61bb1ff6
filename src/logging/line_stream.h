// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

namespace logging::detail {

// A string buffer whose text can be looked at where it is.
class TextBuffer : public std::stringbuf {
  public:
    TextBuffer() : std::stringbuf(std::ios_base::out) {}

    void restart();
    // Good until the buffer is changed.
    [[nodiscard]] std::string_view text();

  protected:
    pos_type seekoff(off_type offset, std::ios_base::seekdir from,
                     std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

  private:
    // Someone has been at the position, which is then not certain to be the end of the text.
    bool mPositioned = false;
    std::string mCopy;
};

// What the operands of a line are streamed into. Making a stream takes longer than all else that is
// done for a line, so each thread keeps one for its next.
class LineStream : public std::ostream {
  public:
    LineStream();

    // An empty stream in its first state, the calling thread's if that is not in use: operands may
    // themselves write lines. Null when there is no memory.
    [[nodiscard]] static LineStream* acquire();
    // Kept for this thread's next line, or deleted.
    static void release(LineStream* stream);
    // The calling thread's, which keeps nothing.
    static std::ostream& sink();

    [[nodiscard]] std::string_view text() { return mBuffer.text(); }
    // Room for the finished line.
    std::string& line() { return mLine; }

  private:
    void restart();
    [[nodiscard]] bool isWorthKeeping() const;

    TextBuffer mBuffer;
    std::string mLine;
};

}  // namespace logging::detail
