// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <unistd.h>
#include <vyn/socket.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "echo/server_process.h"
#include "support/bench.h"
#include "support/machine.h"

// What a request costs the key-value service of examples/keyvalue beside redis-server, which has
// the same clients: redis-benchmark, on a core of its own.
namespace keyvalue {

namespace {

struct Case {
    const char* name;
    const char* command;
    int valueBytes;
    int clients;
    int pipelined;
    int requests;
};

int freePort() {
    vyn::Socket socket(vyn::Socket::TCP);
    bench::require(socket.setHostIP("127.0.0.1") && socket.bind(0), "bind");
    return socket.getHostPort();
}

// redis-benchmark would wait for ever for a server that does not listen yet.
void awaitListening(int port) {
    constexpr int kTries = 1000;
    for (int i = 0; i < kTries; ++i) {
        vyn::Socket socket(vyn::Socket::TCP);
        if (socket.connect("127.0.0.1", port)) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    bench::fail("nobody listens");
}

template <typename... Arguments>
void become(const echo::Place& place, const char* program, Arguments... arguments) {
    const int port = freePort();
    echo::announce(place, port);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execlp(program, program, arguments..., std::to_string(port).c_str(), nullptr);
    bench::require(false, program);
}

void serveOurs(const echo::Place& place) { become(place, VYN_KEYVALUE); }
void serveRedis(const echo::Place& place) {
    become(place, "redis-server", "--save", "", "--appendonly", "no", "--port");
}

void load(const Case& it, int port, const char* command, int requests) {
    const auto option = [](const char* name, int value) {
        return std::string(name) + std::to_string(value);
    };
    const std::string line = std::string("redis-benchmark -t ") + command + option(" -p ", port) +
                             option(" -d ", it.valueBytes) + option(" -c ", it.clients) +
                             option(" -P ", it.pipelined) + option(" -n ", requests);
    bench::require(std::system((line + " > /dev/null 2>&1").c_str()) == 0, "redis-benchmark");
}

void measure(const Case& it, void (*serve)(const echo::Place& place)) {
    const echo::ServerProcess server(serve, false);
    bench::pinTo(bench::kLoadCore);
    awaitListening(server.port());
    // So that there is something to get.
    load(it, server.port(), "set", it.requests / 10);
    const int64_t cpuBefore = server.cpuTime();
    const int64_t begin = bench::now();
    load(it, server.port(), it.command, it.requests);
    const auto duration = static_cast<double>(bench::now() - begin);
    const auto cpu = static_cast<double>(server.cpuTime() - cpuBefore);
    bench::report("cpu_per_request", cpu / it.requests / 1000, "us");
    bench::report("requests_per_s", it.requests * 1e9 / duration, "1/s");
}

constexpr int k64K = 64 * 1024;
// The size of the values, the command, and how many clients send how many requests at a time.
constexpr Case kCases[] = {
    {"3B-ping-50x1", "ping_mbulk", 3, 50, 1, 100000},
    {"3B-ping-50x16", "ping_mbulk", 3, 50, 16, 1000000},
    {"3B-ping-50x100", "ping_mbulk", 3, 50, 100, 2000000},
    {"3B-set-50x1", "set", 3, 50, 1, 100000},
    {"3B-set-50x16", "set", 3, 50, 16, 1000000},
    {"3B-set-50x100", "set", 3, 50, 100, 2000000},
    {"3B-get-50x1", "get", 3, 50, 1, 100000},
    {"3B-get-50x16", "get", 3, 50, 16, 1000000},
    {"3B-get-50x100", "get", 3, 50, 100, 2000000},
    {"64K-set-1x1", "set", k64K, 1, 1, 20000},
    {"64K-set-1x16", "set", k64K, 1, 16, 30000},
    {"64K-set-50x1", "set", k64K, 50, 1, 30000},
    {"64K-set-50x16", "set", k64K, 50, 16, 30000},
    {"64K-get-1x1", "get", k64K, 1, 1, 20000},
    {"64K-get-1x16", "get", k64K, 1, 16, 30000},
    {"64K-get-50x1", "get", k64K, 50, 1, 30000},
    {"64K-get-50x16", "get", k64K, 50, 16, 30000},
};

}  // namespace

}  // namespace keyvalue

int main(int argc, char** argv) {
    std::vector<bench::Contest> contests;
    for (const keyvalue::Case& it : keyvalue::kCases) {
        contests.push_back({it.name, "ours", [&] { measure(it, keyvalue::serveOurs); }});
        contests.push_back({it.name, "redis", [&] { measure(it, keyvalue::serveRedis); }});
    }
    return bench::run(argc, argv, contests);
}
