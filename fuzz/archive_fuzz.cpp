// SPDX-License-Identifier: Apache-2.0

// Any bytes as the block of an archive: the whole records at its beginning are read, and flattening
// them gives these bytes again.

#include <vyn/archive.h>
#include <vyn/logging.h>

#include <cstring>
#include <string>

namespace {

using vyn::Archive;
using vyn::Buffer;

// The beginning of a block that the whole records take which are to be read from it.
std::string readable(const std::string& block) {
    size_t done = 0;
    while (block.size() - done > 4) {
        uint32_t length = 0;
        for (size_t i = 4; i-- > 0;) length = length << 8 | static_cast<uint8_t>(block[done + i]);
        if (length > block.size() - done - 4) break;
        done += 4 + length;
    }
    return block.substr(0, done);
}

std::string flattened(const Archive& archive) {
    Buffer flat;
    archive.copyTo(flat);
    return flat.size == 0 ? "" : std::string(flat.data, static_cast<size_t>(flat.size));
}

}  // namespace

// Takes the items in every way there is, and puts those taken whole into another archive.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string expected = readable(std::string(data, data + size));
    Archive archive(data, static_cast<int>(size)), taken;
    VYN_CHECK(flattened(archive) == expected);
    for (Buffer item; !archive.empty(); taken << item) archive >> item;
    VYN_CHECK(flattened(taken) == expected);
    taken.putSerializeData(data, static_cast<int>(size));
    VYN_CHECK(flattened(taken) == expected + expected);
    for (std::string text; !taken.empty(); taken >> text) {
        char bytes[3] = {};
        taken.get(bytes, sizeof bytes);
        VYN_CHECK(text.find('\0') == std::string::npos);
    }
    return 0;
}
