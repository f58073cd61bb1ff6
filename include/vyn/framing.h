// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include <vyn/command.h>
#include <vyn/export.h>
#include <vyn/parser.h>

// Parsers for the two framings that most protocols have: lines, and payloads led by their length.
//
//     struct Connection : vyn::Worker {
//         explicit Connection(vyn::Device* device)
//             : Worker(device, new vyn::LineParser(device, 1024)) {}
//         ~Connection() override { delete getParser(), delete getDevice(); }
//     };
//     void onCommand(vyn::Worker* worker, vyn::Command* command) override {
//         const std::string& text = static_cast<vyn::Line*>(command)->text;
//         vyn::Line answer("you said " + text);
//         worker->write(&answer);
//     }
//
// A connection needs a parser of its own, since that keeps the bytes of what has not arrived whole.
// Nothing is kept between two messages.
//
// An authenticator, to which the parser gives nothing yet, cuts what arrives with the buffer that
// the parser has, too, and hands on what it has not used:
//
//     void onData(const void* data, int len) override {
//         mBuffer.append(data, len);
//         std::string_view line;
//         const auto result = mBuffer.next(line);
//         if (result == vyn::LineBuffer::kIncomplete) return;
//         mHasPassed = result == vyn::LineBuffer::kWhole && line == mPassword;
//         if (!mHasPassed) return worker()->onAuthenticationFailed();
//         const std::string rest = mBuffer.takeRest();
//         vyn::Worker* const peer = worker();
//         peer->onAuthenticated();  // which in this application deletes nothing
//         if (!rest.empty()) peer->onData(rest.data(), static_cast<int>(rest.size()));
//     }
//
// Everything here is used on one thread at a time, parsers on the loop's.
namespace vyn {

class Device;

// The bytes of a stream that have not been taken yet.
class VYN_API FramingBuffer {
  public:
    // What next() has found.
    enum Result {
        kWhole,       // the next message
        kIncomplete,  // more bytes are needed
        kTooLong,  // the next message is longer than it may be. This comes once; all further bytes
                   // are dropped, and kIncomplete is the answer
    };

    FramingBuffer(const FramingBuffer&) = delete;
    FramingBuffer& operator=(const FramingBuffer&) = delete;

    // Adds a copy of bytes that have arrived. As long as next() is then called until it gives no
    // message any more, no more is ever kept than the longest message takes.
    void append(const void* data, int len);
    // Takes the bytes behind the messages that were taken: for who reads on with something else.
    [[nodiscard]] std::string takeRest();
    // Forgets everything, also that a message was too long: for another connection.
    void clear();

  protected:
    FramingBuffer() = default;
    ~FramingBuffer() = default;

    // As append(), without a copy where nothing is kept: until next() gives no message, or
    // takeRest() is called, the bytes must stay.
    void offer(const void* data, int len);

    // What is left of what was offered need not stay from here on.
    void settle();

    // For next(): the bytes that have not been taken; takes some; answers kIncomplete, and keeps
    // what is there; answers kTooLong, and forgets everything from there on.
    [[nodiscard]] std::string_view unread() const { return mUnread; }
    // See unread().
    void consume(size_t count) { mUnread.remove_prefix(count); }
    // See unread().
    Result waitForMore();
    // See unread().
    Result refuse();

  private:
    void keep();

    std::string mKept;
    std::string_view mUnread;  // of mKept, or of what is offered
    bool mIsKept = false;      // which of the two
    bool mIsRefused = false;
};

// Cuts bytes into lines, each ended by a line feed or by a carriage return and a line feed.
class VYN_API LineBuffer : public FramingBuffer {
  public:
    // A line has at most so many bytes in front of its end.
    explicit LineBuffer(size_t longest) : mLongest(longest) {}

    // Takes the next line, which is good until this buffer is used again. It has no end, and may
    // have any other bytes in it, NULs and single carriage returns too.
    [[nodiscard]] Result next(std::string_view& line);
    // See FramingBuffer.
    [[nodiscard]] std::string takeRest();
    void clear();

  private:
    friend class LineParser;

    size_t mLongest;
    size_t mSearched = 0;  // so many bytes have no line feed
};

// How the length of a payload stands in front of it. It does not count itself.
struct VYN_API FrameFormat {
    // Which byte of the length comes first.
    enum Order { kHighByteFirst, kLowByteFirst };

    int lengthBytes = 4;           // 1, 2 or 4
    Order order = kHighByteFirst;  // of those bytes
    size_t longest = 64 * 1024;    // the bytes a payload may have

    // The payload with its length in front. Empty, after an error line, when it is too long.
    [[nodiscard]] std::string packetOf(std::string_view payload) const;
};

// Cuts bytes into payloads.
class VYN_API FrameBuffer : public FramingBuffer {
  public:
    // A length of another number of bytes is a fatal error, after which it has 4.
    explicit FrameBuffer(const FrameFormat& format);

    // Takes the next payload, which is good until this buffer is used again. It may be empty.
    [[nodiscard]] Result next(std::string_view& payload);
    [[nodiscard]] const FrameFormat& format() const { return mFormat; }

  private:
    friend class FrameParser;

    [[nodiscard]] size_t length() const;

    FrameFormat mFormat;
};

// A line, without its end.
class VYN_API Line : public Command {
  public:
    // Of this text.
    explicit Line(std::string content = {}) : text(std::move(content)) {}

    const char* getClassName() override;
    void dump(std::ostream& os) override;

    std::string text;  // may be changed
};

// A payload, without its length.
class VYN_API Frame : public Command {
  public:
    // Of this payload.
    explicit Frame(std::string content = {}) : payload(std::move(content)) {}

    const char* getClassName() override;
    // The number of bytes.
    void dump(std::ostream& os) override;

    std::string payload;  // may be changed
};

// Turns lines into commands of the class Line and back. A Line that is reported lives until the
// executor's onCommand() returns.
//
// A line that is too long is an error line, and the device disconnects: the executor gets
// onDisconnected(), and may delete worker, device and parser in there. Nothing of that line or
// behind it is reported or kept.
class VYN_API LineParser : public Parser {
  public:
    // `device` is the one of the worker; not owned. Without one nobody is disconnected.
    explicit LineParser(Device* device = nullptr, size_t longest = 8 * 1024);

    // Writes a Line, whatever its length, with a line feed. Its text goes out as it is: the peer
    // takes one with line feeds in it for several lines.
    void createPacket(Command* line) override;
    int parse(const void* data, int len, bool more) override;
    // Forgets what has not arrived whole, and a line that was too long: for a client that has
    // another connection.
    void clear() { mBuffer.clear(); }

  private:
    Device* const mDevice;
    LineBuffer mBuffer;
};

// The same for payloads led by their length, which are commands of the class Frame.
class VYN_API FrameParser : public Parser {
  public:
    // As LineParser's.
    explicit FrameParser(Device* device = nullptr, const FrameFormat& format = FrameFormat());

    // Writes a Frame. One that is too long is an error line, and is not written.
    void createPacket(Command* frame) override;
    int parse(const void* data, int len, bool more) override;
    // As LineParser's.
    void clear() { mBuffer.clear(); }

  private:
    Device* const mDevice;
    FrameBuffer mBuffer;
};

}  // namespace vyn
