// SPDX-License-Identifier: Apache-2.0

#include <vyn/framing.h>

#include "connector/refuse_message.h"

namespace vyn {

LineBuffer::Result LineBuffer::next(std::string_view& line) {
    const size_t end = unread().find('\n', mSearched);
    std::string_view found = unread().substr(0, end);
    if (!found.empty() && found.back() == '\r') found.remove_suffix(1);
    mSearched = 0;
    if (found.size() > mLongest) return refuse();
    if (end == std::string_view::npos) {
        mSearched = unread().size();
        return waitForMore();
    }
    consume(end + 1);
    line = found;
    return kWhole;
}

std::string LineBuffer::takeRest() {
    mSearched = 0;
    return FramingBuffer::takeRest();
}

void LineBuffer::clear() {
    mSearched = 0;
    FramingBuffer::clear();
}

const char* Line::getClassName() { return "Line"; }

void Line::dump(std::ostream& os) { os << text; }

LineParser::LineParser(Device* device, size_t longest) : mDevice(device), mBuffer(longest) {}

void LineParser::createPacket(Command* line) {
    const std::string packet = static_cast<Line*>(line)->text + '\n';
    onPacketCreated(packet.data(), static_cast<int>(packet.size()));
}

int LineParser::parse(const void* data, int len, bool) {
    mBuffer.offer(data, len);
    std::string_view text;
    const LineBuffer::Result result = mBuffer.next(text);
    if (result == LineBuffer::kTooLong) refuseMessage("line", mBuffer.mLongest, mDevice);
    if (result != LineBuffer::kWhole) return -1;
    Line line{std::string(text)};
    mBuffer.settle();
    onCommandParsed(&line);  // which may delete this parser, or the worker and end this read
    return 0;
}

}  // namespace vyn
