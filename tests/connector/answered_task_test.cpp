// SPDX-License-Identifier: Apache-2.0

#include <vyn/thread_pool.h>

#include <future>
#include <memory>

#include "support/support.h"

namespace vyn::testing {
namespace {

TEST(AnsweredTask, RunsItsSecondFunctionOnTheLoopUnlessThatHasGone) {
    const auto token = std::make_shared<int>();
    std::promise<void> loopHasGone, allHasRun;
    ThreadPool pool(1);
    std::optional<Connector> loop(std::in_place);
    std::thread::id worker;
    int called = 0;
    pool.addTask([&] { worker = std::this_thread::get_id(); }, *loop,
                 [&, token] {
                     EXPECT_NE(std::this_thread::get_id(), worker);
                     ++called;
                     loop->stop();
                 });
    loop->run();
    EXPECT_EQ(called, 1);
    EXPECT_EQ(token.use_count(), 1);

    pool.addTask([&] { loopHasGone.get_future().wait(); }, *loop, [token] { ADD_FAILURE(); });
    loop.emplace();  // where the other was
    loopHasGone.set_value();
    EXPECT_TRUE(waitUntil([&] { return token.use_count() == 1; }));

    pool.addTask([] {}, *loop, [token] { ADD_FAILURE(); });
    pool.addTask([&] { allHasRun.set_value(); });
    allHasRun.get_future().wait();
    EXPECT_EQ(token.use_count(), 2) << "it waits in the loop";
    loop.reset();
    EXPECT_EQ(token.use_count(), 1);
}

}  // namespace
}  // namespace vyn::testing
