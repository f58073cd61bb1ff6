// SPDX-License-Identifier: Apache-2.0

#include <vyn/helper.h>
#include <zlib.h>

#include "codec/codec.h"
#include "support/repeat.h"

namespace bench {

namespace {

double ours(const std::string& bytes) {
    return nanosecondsFor(
        [&bytes] { keep(vyn::helper::crc32(bytes.data(), static_cast<int>(bytes.size()))); });
}

double zlib(const std::string& bytes) {
    return nanosecondsFor([&bytes] {
        keep(::crc32(0, reinterpret_cast<const Bytef*>(bytes.data()),
                     static_cast<uInt>(bytes.size())));
    });
}

}  // namespace

std::vector<Contest> checksumContests() {
    std::vector<Contest> contests;
    for (const size_t size : {64, 4096, 1 << 20}) {
        const std::string name = "checksum-" + std::to_string(size);
        contests.push_back(timed(name, "ours", [size] { return ours(noise(size)); }));
        contests.push_back(timed(name, "zlib", [size] { return zlib(noise(size)); }));
    }
    return contests;
}

}  // namespace bench
