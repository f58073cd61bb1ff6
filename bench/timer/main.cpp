// SPDX-License-Identifier: Apache-2.0

#include "timer/contest.h"

int main(int argc, char** argv) {
    std::vector<bench::Contest> all;
    for (auto contestant : {timer::ours, timer::libuv, timer::libevent, timer::asio}) {
        for (bench::Contest& contest : contestant()) all.push_back(std::move(contest));
    }
    return bench::run(argc, argv, all);
}
