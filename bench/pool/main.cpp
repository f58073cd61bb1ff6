// SPDX-License-Identifier: Apache-2.0

#include <stdlib.h>
#include <uv.h>
#include <vyn/logging.h>
#include <vyn/thread_pool.h>

#include <asio.hpp>
#include <functional>
#include <string>
#include <vector>

#include "support/bench.h"
#include "support/machine.h"

// Empty tasks on two threads, from the first that is added until the last has run. Each contestant
// is used the way its users do: what a task needs is made for it, and freed when it is done. The
// threads run where the kernel puts them ("empty-tasks"), or the pool's on one core and the one
// that adds on the other ("empty-tasks-pinned").
namespace bench {

namespace {

constexpr int kTasks = 1000000;
constexpr int kThreads = 2;

class EmptyTask : public vyn::ThreadPool::Task {
  public:
    void run() override {}
};

// What is called once the threads are there.
using Begin = std::function<void()>;

void ours(const Begin& begin) {
    vyn::ThreadPool pool(kThreads);
    begin();
    for (int i = 0; i < kTasks; ++i) pool.addTask(new EmptyTask);
}

void libuv(const Begin& begin) {
    require(setenv("UV_THREADPOOL_SIZE", std::to_string(kThreads).c_str(), 1) == 0, "setenv");
    uv_loop_t loop;
    require(uv_loop_init(&loop) == 0, "uv_loop_init");
    const auto add = [&loop] {
        uv_queue_work(
            &loop, new uv_work_t, [](uv_work_t*) {}, [](uv_work_t* work, int) { delete work; });
    };
    add();  // which starts the threads
    uv_run(&loop, UV_RUN_DEFAULT);
    begin();
    for (int i = 0; i < kTasks; ++i) add();
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}

void asio(const Begin& begin) {
    ::asio::thread_pool pool(kThreads);
    begin();
    for (int i = 0; i < kTasks; ++i) ::asio::post(pool, [] {});
    pool.join();
}

void measure(void (*runTasks)(const Begin&), bool isPinned) {
    if (isPinned) pinTo(kMeasuredCore);
    int64_t start = 0, cpuStart = 0;
    runTasks([&] {
        if (isPinned) pinTo(kLoadCore);
        start = now();
        cpuStart = processCpuTime();
    });
    report("cpu_per_task", static_cast<double>(processCpuTime() - cpuStart) / kTasks, "ns");
    report("tasks_per_s", kTasks * 1e9 / static_cast<double>(now() - start), "1/s");
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    using bench::measure;
    // Ours tells when threads come and go.
    logging::setLogLevel(logging::kLevelWarning);
    std::vector<bench::Contest> contests;
    for (const bool isPinned : {false, true}) {
        const std::string name = isPinned ? "empty-tasks-pinned" : "empty-tasks";
        contests.push_back({name, "ours", [=] { measure(bench::ours, isPinned); }});
        contests.push_back({name, "libuv", [=] { measure(bench::libuv, isPinned); }});
        contests.push_back({name, "asio", [=] { measure(bench::asio, isPinned); }});
    }
    return bench::run(argc, argv, contests);
}
