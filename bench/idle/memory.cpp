// SPDX-License-Identifier: Apache-2.0

#include "idle/memory.h"

#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "echo/load.h"
#include "echo/server_process.h"
#include "support/bench.h"
#include "support/machine.h"

namespace idle {

namespace {

constexpr int kOtherDescriptors = 100;
constexpr size_t kMessageBytes = 64;

// Answers each byte with the size of the heap in use; in the server, beside its loop.
void answerHeapInUse(int fd) {
    char question;
    while (read(fd, &question, 1) == 1) {
        const auto heap = mallinfo2();
        const uint64_t bytes = heap.uordblks + heap.hblkhd;  // large blocks are not in the first
        bench::require(write(fd, &bytes, sizeof bytes) == sizeof bytes, "write");
    }
}

uint64_t askHeapInUse(int fd) {
    uint64_t bytes = 0;
    bench::require(write(fd, "?", 1) == 1, "write");
    bench::require(read(fd, &bytes, sizeof bytes) == sizeof bytes, "read");
    return bytes;
}

// Without what is shared with files, such as code.
uint64_t residentBytes(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
    std::string word;
    uint64_t kilobytes = 0;
    while (file >> word && word != "Anonymous:") {
    }
    if (!(file >> kilobytes)) bench::fail("no resident size");
    return kilobytes * 1024;
}

}  // namespace

void measureMemory(void (*serve)(const echo::Place& place), int connections) {
    bench::allowDescriptors(connections + kOtherDescriptors);
    int ends[2];
    bench::require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "socketpair");
    const auto startAnswering = [&] { std::thread(answerHeapInUse, ends[1]).detach(); };
    const echo::ServerProcess server(serve, false, startAnswering);
    bench::pinTo(bench::kLoadCore);
    // What the first connection brings into being belongs to the process.
    const echo::Load first(server.path(), server.port(), 1, kMessageBytes);
    const uint64_t heapBefore = askHeapInUse(ends[0]);
    const uint64_t residentBefore = residentBytes(server.id());
    const echo::Load others(server.path(), server.port(), connections, kMessageBytes);
    const auto heap = static_cast<double>(askHeapInUse(ends[0]) - heapBefore);
    const auto resident = static_cast<double>(residentBytes(server.id()) - residentBefore);
    bench::report("heap_per_connection", heap / connections, "B");
    bench::report("resident_per_connection", resident / connections, "B");
}

}  // namespace idle
