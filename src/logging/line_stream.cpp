// SPDX-License-Identifier: Apache-2.0

#include "logging/line_stream.h"

#include <locale>
#include <new>

namespace logging::detail {

namespace {

// A thread does not keep more memory than this for its next line.
constexpr size_t kKeptCapacity = 1024;

// What a thread keeps. Has no destructor, since lines may also be written while the thread's
// objects are destroyed.
struct Kept {
    LineStream* stream;  // null while it is in use
    bool isDeletedAtEnd;
    bool threadEnds;
};
thread_local Kept tKept{nullptr, false, false};

// Where there is no memory for another stream. Made at the first use, without allocating, and never
// destroyed.
alignas(std::ostream) thread_local unsigned char tSink[sizeof(std::ostream)];
thread_local bool tHasSink = false;

struct Deleter {
    ~Deleter() {
        tKept.threadEnds = true;
        delete tKept.stream;
        tKept.stream = nullptr;
    }
    // The first use of a thread's object makes sure that it is destroyed.
    void use() {}
};
thread_local Deleter tDeleter;

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
    Kept& kept = tKept;
    LineStream* stream = kept.stream;
    if (stream == nullptr) return new (std::nothrow) LineStream;
    kept.stream = nullptr;
    stream->restart();
    return stream;
}

void LineStream::release(LineStream* stream) {
    Kept& kept = tKept;
    if (kept.stream != nullptr || kept.threadEnds || !stream->isWorthKeeping()) {
        delete stream;
        return;
    }
    kept.stream = stream;
    if (kept.isDeletedAtEnd) return;
    kept.isDeletedAtEnd = true;
    tDeleter.use();
}

std::ostream& LineStream::sink() {
    void* const place = tSink;
    if (!tHasSink) new (place) std::ostream(nullptr);
    tHasSink = true;
    return *static_cast<std::ostream*>(place);
}

void LineStream::restart() {
    mBuffer.restart();
    exceptions(goodbit);
    rdbuf(&mBuffer);  // also forgets failures
    flags(skipws | dec);
    precision(6);
    width(0);
    fill(' ');
    tie(nullptr);
    // An operand may have brought its own, or the program have chosen another since.
    if (const std::locale global; getloc() != global) imbue(global);
}

bool LineStream::isWorthKeeping() const { return mLine.capacity() <= kKeptCapacity; }

}  // namespace logging::detail
