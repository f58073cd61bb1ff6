#include "logging/line_stream.h"

#include <locale>
#include <memory>

namespace logging::detail {

namespace {

// A thread does not keep more memory than this for its next line.
constexpr size_t kKeptCapacity = 1024;

// The calling thread's stream; null while it is in use. Has no destructor, since lines may also be
// written while the thread's objects are destroyed.
thread_local LineStream* tStream = nullptr;
thread_local bool tThreadEnds = false;

struct StreamDeleter {
    ~StreamDeleter() {
        tThreadEnds = true;
        delete tStream;
        tStream = nullptr;
    }
    // Makes sure that the destructor runs.
    void arm() {}
};
thread_local StreamDeleter tStreamDeleter;

}  // namespace

void TextBuffer::restart() {
    str({});
    mPositioned = false;
}

std::string_view TextBuffer::text() {
    if (!mPositioned) return {pbase(), static_cast<size_t>(pptr() - pbase())};
    mCopy = str();
    return mCopy;
}

TextBuffer::pos_type TextBuffer::seekoff(off_type offset, std::ios_base::seekdir from,
                                         std::ios_base::openmode which) {
    mPositioned = true;
    return std::stringbuf::seekoff(offset, from, which);
}

TextBuffer::pos_type TextBuffer::seekpos(pos_type position, std::ios_base::openmode which) {
    mPositioned = true;
    return std::stringbuf::seekpos(position, which);
}

LineStream::LineStream() : std::ostream(nullptr) { rdbuf(&mBuffer); }

LineStream* LineStream::acquire() {
    LineStream* stream = tStream;
    if (stream == nullptr) return new LineStream;
    tStream = nullptr;
    stream->restart();
    return stream;
}

void LineStream::release(LineStream* stream) {
    if (tStream != nullptr || tThreadEnds || !stream->isWorthKeeping()) {
        delete stream;
        return;
    }
    tStreamDeleter.arm();
    tStream = stream;
}

void LineStream::restart() {
    mBuffer.restart();
    mLine.clear();
    exceptions(goodbit);
    clear();
    flags(skipws | dec);
    precision(6);
    width(0);
    fill(' ');
    tie(nullptr);
    // The program may have chosen another since.
    if (const std::locale global; getloc() != global) imbue(global);
}

bool LineStream::isWorthKeeping() const { return mLine.capacity() <= kKeptCapacity; }

}  // namespace logging::detail
