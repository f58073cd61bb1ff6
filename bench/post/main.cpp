// SPDX-License-Identifier: Apache-2.0

#include "post/contest.h"

int main(int argc, char** argv) {
    std::vector<bench::Contest> all;
    for (auto contestant : {post::ours, post::libuv, post::libevent, post::asio, post::epoll}) {
        for (bench::Contest& contest : contestant()) all.push_back(std::move(contest));
    }
    return bench::run(argc, argv, all);
}
