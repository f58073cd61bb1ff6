// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/command.h>
#include <vyn/parser.h>

#include <algorithm>
#include <string>
#include <utility>

// The framing of everything that talks to the gateway. A line is text without control characters,
// ended by LF or CR LF, and has at most kLongestLine bytes in front of that.
constexpr size_t kLongestLine = 1024;

// Cuts a stream of bytes into lines. Keeps little more than one line and what was appended last.
class LineBuffer {
  public:
    enum Result { kLine, kIncomplete, kMalformed };

    void append(const void* data, int len) {
        if (mIsBroken || len < 1) return;
        mBytes.erase(0, std::exchange(mStart, 0));
        mBytes.append(static_cast<const char*>(data), static_cast<size_t>(len));
    }
    // Takes the next line. Once malformed, it keeps nothing and gives nothing any more.
    Result next(std::string& line) {
        const size_t end = mBytes.find('\n', mStart);
        const bool isWhole = end != std::string::npos;
        const bool isLong = mBytes.size() - mStart > kLongestLine + 1;  // 1: a CR
        if (mIsBroken || (!isWhole && !isLong)) return kIncomplete;
        line = mBytes.substr(mStart, end - mStart);
        mStart = isWhole ? end + 1 : mBytes.size();
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const auto isControl = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; };
        mIsBroken = line.size() > kLongestLine || std::any_of(line.begin(), line.end(), isControl);
        if (mIsBroken) takeRest();
        return mIsBroken ? kMalformed : kLine;
    }
    // Takes the bytes behind the lines that were taken.
    std::string takeRest() {
        std::string rest = mBytes.substr(std::exchange(mStart, 0));
        mBytes.clear();
        return rest;
    }

  private:
    std::string mBytes;
    size_t mStart = 0;  // of the next line
    bool mIsBroken = false;
};

struct Line : vyn::Command {
    explicit Line(std::string content = {}) : text(std::move(content)) {}
    const char* getClassName() override { return "Line"; }
    void dump(std::ostream& os) override { os << text; }

    std::string text;
    bool isMalformed = false;  // the peer sent something that is no line; it will give no other
};

class LineParser : public vyn::Parser {
  public:
    // The text may itself consist of several lines.
    void createPacket(vyn::Command* line) override {
        const std::string packet = static_cast<Line*>(line)->text + '\n';
        onPacketCreated(packet.data(), static_cast<int>(packet.size()));
    }
    // The line lives until the executor is through with it.
    int parse(const void* data, int len, bool) override {
        mBuffer.append(data, len);
        Line line;
        const LineBuffer::Result result = mBuffer.next(line.text);
        if (result == LineBuffer::kIncomplete) return -1;
        line.isMalformed = result == LineBuffer::kMalformed;
        onCommandParsed(&line);  // which may delete this parser
        return 0;
    }

  private:
    LineBuffer mBuffer;
};
