// Any bytes from a peer of the gateway: the lines that are found do not depend on how the bytes
// arrive, and none is longer than it may be.

#include <vyn/logging.h>

#include <algorithm>
#include <string>
#include <vector>

#include "gateway/line_parser.h"

namespace {

struct Collector : vyn::Parser::PostListener {
    std::vector<std::string> lines;
    bool malformed = false;

    void onCommandParsed(vyn::Command* command) override {
        const auto* line = static_cast<Line*>(command);
        VYN_CHECK(!malformed);
        malformed = line->isMalformed;
        if (malformed) return;
        VYN_CHECK(line->text.size() <= kLongestLine);
        VYN_CHECK(line->text.find('\n') == std::string::npos);
        lines.push_back(line->text);
    }
    void onPacketCreated(const void*, int) override {}
};

// Offers the bytes in pieces of `step`.
Collector parse(const uint8_t* data, size_t size, size_t step) {
    LineParser parser;
    Collector collector;
    for (size_t start = 0; start < size; start += step) {
        parser.setListener(&collector);
        parser.doParse(data + start, static_cast<int>(std::min(step, size - start)));
    }
    return collector;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const size_t step = 1 + data[0];
    const Collector whole = parse(data, size, size);
    const Collector pieces = parse(data, size, step);
    VYN_CHECK(whole.lines == pieces.lines);
    VYN_CHECK(whole.malformed == pieces.malformed);
    return 0;
}
