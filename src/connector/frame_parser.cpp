// SPDX-License-Identifier: Apache-2.0

#include <vyn/framing.h>
#include <vyn/logging.h>

#include <algorithm>
#include <climits>

#include "connector/refuse_message.h"

namespace vyn {

namespace {

// The bits that the byte at a place of a length is shifted by.
int shiftOf(int place, const FrameFormat& format) {
    const int bytesBehind =
        format.order == FrameFormat::kLowByteFirst ? place : format.lengthBytes - 1 - place;
    return CHAR_BIT * bytesBehind;
}

// What the length can tell, and a call to write take.
size_t mostBytes(const FrameFormat& format) {
    const uint64_t told = (uint64_t{1} << (CHAR_BIT * format.lengthBytes)) - 1;
    const auto written = static_cast<uint64_t>(INT_MAX - format.lengthBytes);
    return std::min(format.longest, static_cast<size_t>(std::min(told, written)));
}

}  // namespace

std::string FrameFormat::packetOf(std::string_view payload) const {
    if (payload.size() > mostBytes(*this)) {
        VYN_LOG_ERROR << "frame of " << payload.size() << " bytes is too long to be written.";
        return {};
    }
    std::string packet;
    packet.reserve(static_cast<size_t>(lengthBytes) + payload.size());
    for (int place = 0; place < lengthBytes; ++place) {
        packet += static_cast<char>(payload.size() >> shiftOf(place, *this) & 0xFF);
    }
    return packet.append(payload);
}

FrameBuffer::FrameBuffer(const FrameFormat& format) : mFormat(format) {
    const int bytes = format.lengthBytes;
    const bool isLength = bytes == 1 || bytes == 2 || bytes == 4;
    if (!isLength) mFormat.lengthBytes = 4;
    VYN_CHECK(isLength);
}

FrameBuffer::Result FrameBuffer::next(std::string_view& payload) {
    const auto lengthBytes = static_cast<size_t>(mFormat.lengthBytes);
    if (unread().size() < lengthBytes) return waitForMore();
    const size_t size = length();
    if (size > mFormat.longest) return refuse();
    if (unread().size() - lengthBytes < size) return waitForMore();
    payload = unread().substr(lengthBytes, size);
    consume(lengthBytes + size);
    return kWhole;
}

size_t FrameBuffer::length() const {
    size_t length = 0;
    for (int place = 0; place < mFormat.lengthBytes; ++place) {
        const auto byte = static_cast<unsigned char>(unread()[static_cast<size_t>(place)]);
        length |= size_t{byte} << shiftOf(place, mFormat);
    }
    return length;
}

const char* Frame::getClassName() { return "Frame"; }

void Frame::dump(std::ostream& os) { os << payload.size() << " bytes"; }

FrameParser::FrameParser(Device* device, const FrameFormat& format)
    : mDevice(device), mBuffer(format) {}

void FrameParser::createPacket(Command* frame) {
    const std::string packet = mBuffer.format().packetOf(static_cast<Frame*>(frame)->payload);
    if (!packet.empty()) onPacketCreated(packet.data(), static_cast<int>(packet.size()));
}

int FrameParser::parse(const void* data, int len, bool) {
    mBuffer.offer(data, len);
    std::string_view payload;
    const FrameBuffer::Result result = mBuffer.next(payload);
    if (result == FrameBuffer::kTooLong) refuseMessage("frame", mBuffer.mFormat.longest, mDevice);
    if (result != FrameBuffer::kWhole) return -1;
    Frame frame{std::string(payload)};
    mBuffer.settle();
    onCommandParsed(&frame);  // which may delete this parser, or the worker and end this read
    return 0;
}

}  // namespace vyn
