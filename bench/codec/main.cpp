// SPDX-License-Identifier: Apache-2.0

#include <random>

#include "codec/codec.h"

namespace bench {

std::string noise(size_t size) {
    std::mt19937 random(1);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() & 0xFF);
    return bytes;
}

Contest timed(const std::string& caseName, const std::string& contestant,
              const std::function<double()>& nanoseconds) {
    return {caseName, contestant, [nanoseconds] { report("time", nanoseconds(), "ns"); }};
}

}  // namespace bench

int main(int argc, char** argv) {
    std::vector<bench::Contest> contests;
    for (const auto& some : {bench::checksumContests(), bench::md5Contests(),
                             bench::archiveContests(), bench::hexContests()}) {
        contests.insert(contests.end(), some.begin(), some.end());
    }
    return bench::run(argc, argv, contests);
}
