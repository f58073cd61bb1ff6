// SPDX-License-Identifier: Apache-2.0

// Any bytes from a peer of the gateway: the lines that are found do not depend on how the bytes
// arrive, and none is longer than it may be.

#include <vyn/logging.h>

#include <algorithm>
#include <string>

#include "gateway/line_parser.h"

namespace {

struct Collector : vyn::Parser::PostListener {
    std::string lines;
    bool malformed = false;

    void onCommandParsed(vyn::Command* command) override {
        const auto* line = static_cast<Line*>(command);
        VYN_CHECK(!malformed);
        malformed = line->isMalformed;
        if (malformed) return;
        VYN_CHECK(line->text.size() <= kLongestLine);
        VYN_CHECK(line->text.find('\n') == std::string::npos);
        lines += line->text + '\n';
    }
    void onPacketCreated(const void*, int) override {}
};

// Offers the bytes in pieces of `step`.
std::string parse(const uint8_t* data, size_t size, size_t step) {
    LineParser parser;
    Collector collector;
    for (size_t start = 0; start < size; start += step) {
        parser.setListener(&collector);
        parser.doParse(data + start, static_cast<int>(std::min(step, size - start)));
    }
    return collector.lines + (collector.malformed ? "malformed" : "");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 0) VYN_CHECK(parse(data, size, size) == parse(data, size, 1 + data[0]));
    return 0;
}
