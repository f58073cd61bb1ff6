// SPDX-License-Identifier: Apache-2.0

#include <stdlib.h>
#include <uv.h>
#include <vyn/logging.h>
#include <vyn/thread_pool.h>

#include <asio.hpp>

#include "support/bench.h"
#include "support/machine.h"

// Empty tasks on two threads, from the first that is added until the last has run. Each contestant
// is used the way its users do: what a task needs is made for it, and freed when it is done.
namespace bench {

namespace {

constexpr int kTasks = 1000000;
constexpr int kThreads = 2;

class EmptyTask : public vyn::ThreadPool::Task {
  public:
    void run() override {}
};

void ours() {
    vyn::ThreadPool pool(kThreads);
    for (int i = 0; i < kTasks; ++i) pool.addTask(new EmptyTask);
}

void libuv() {
    require(setenv("UV_THREADPOOL_SIZE", std::to_string(kThreads).c_str(), 1) == 0, "setenv");
    uv_loop_t loop;
    require(uv_loop_init(&loop) == 0, "uv_loop_init");
    for (int i = 0; i < kTasks; ++i) {
        uv_queue_work(
            &loop, new uv_work_t, [](uv_work_t*) {}, [](uv_work_t* work, int) { delete work; });
    }
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}

void asio() {
    ::asio::thread_pool pool(kThreads);
    for (int i = 0; i < kTasks; ++i) ::asio::post(pool, [] {});
    pool.join();
}

Contest contest(const char* contestant, void (*runTasks)()) {
    return {"empty-tasks", contestant, [runTasks] {
                const int64_t start = now();
                const int64_t cpuStart = processCpuTime();
                runTasks();
                report("cpu_per_task", static_cast<double>(processCpuTime() - cpuStart) / kTasks,
                       "ns");
                report("tasks_per_s", kTasks * 1e9 / static_cast<double>(now() - start), "1/s");
            }};
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    using bench::contest;
    // Ours tells when threads come and go.
    logging::setLogLevel(logging::kLevelWarning);
    return bench::run(argc, argv,
                      {contest("ours", bench::ours), contest("libuv", bench::libuv),
                       contest("asio", bench::asio)});
}
