// SPDX-License-Identifier: Apache-2.0

// Any bytes from a peer: the lines and frames that are found do not depend on how the bytes arrive,
// and none is longer than it may be.

#include <vyn/framing.h>
#include <vyn/logging.h>

#include <algorithm>
#include <string>

namespace {

constexpr size_t kLongest = 40;

struct Collector : vyn::Parser::PostListener {
    std::string all;

    void onCommandParsed(vyn::Command* command) override {
        const bool isLine = command->getClassName() == std::string("Line");
        const std::string& text = isLine ? static_cast<vyn::Line*>(command)->text
                                         : static_cast<vyn::Frame*>(command)->payload;
        VYN_CHECK(text.size() <= kLongest);
        VYN_CHECK(!isLine || text.find('\n') == std::string::npos);
        all += text + '\n';
    }
    void onPacketCreated(const void*, int) override {}
};

// Offers the bytes in pieces of `step`, each of which is gone afterwards.
std::string parse(vyn::Parser&& parser, const std::string& bytes, size_t step) {
    Collector collector;
    parser.setListener(&collector);
    for (size_t start = 0; start < bytes.size(); start += step) {
        const std::string piece = bytes.substr(start, step);
        parser.doParse(piece.data(), static_cast<int>(piece.size()));
    }
    return collector.all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const size_t step = 1 + data[0];
    using vyn::LineParser, vyn::FrameParser, vyn::FrameFormat;
    VYN_CHECK(parse(LineParser(nullptr, kLongest), bytes, size) ==
              parse(LineParser(nullptr, kLongest), bytes, step));
    const auto order = (step & 1) != 0 ? FrameFormat::kHighByteFirst : FrameFormat::kLowByteFirst;
    const FrameFormat format{1 << (step >> 1) % 3, order, kLongest};
    VYN_CHECK(parse(FrameParser(nullptr, format), bytes, size) ==
              parse(FrameParser(nullptr, format), bytes, step));
    return 0;
}
