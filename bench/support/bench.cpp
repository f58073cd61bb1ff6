// SPDX-License-Identifier: Apache-2.0

#include "support/bench.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/machine.h"

namespace bench {

namespace {

// The value of "--name=value" among the arguments, or an empty text.
std::string option(int argc, char** argv, const std::string& name) {
    const std::string prefix = "--" + name + "=";
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], prefix.c_str(), prefix.size()) == 0) {
            return argv[i] + prefix.size();
        }
    }
    return {};
}

}  // namespace

int run(int argc, char** argv, const std::vector<Contest>& contests) {
    if (argc == 2 && std::strcmp(argv[1], "--cores") == 0) {
        report("cores_apart", coreDistance(), "ns");
        return 0;
    }
    const bool list = argc == 2 && std::strcmp(argv[1], "--list") == 0;
    const std::string caseName = option(argc, argv, "case");
    const std::string contestant = option(argc, argv, "contestant");
    for (const Contest& contest : contests) {
        if (list) {
            std::printf("%s\t%s\n", contest.caseName.c_str(), contest.contestant.c_str());
        } else if (contest.caseName == caseName && contest.contestant == contestant) {
            contest.measure();
            return 0;
        }
    }
    if (list) return 0;
    std::fprintf(stderr, "usage: %s --list | --case=CASE --contestant=NAME\n", argv[0]);
    return 2;
}

void report(const char* metric, double value, const char* unit) {
    std::printf("%s\t%.9g\t%s\n", metric, value, unit);
}

void fail(const std::string& why) {
    std::fprintf(stderr, "can not measure: %s\n", why.c_str());
    // At once: threads that still use a loop would be in the way of an orderly end.
    std::_Exit(1);
}

void require(bool condition, const char* what) {
    if (!condition) fail(std::string(what) + ": " + std::strerror(errno));
}

}  // namespace bench
