// SPDX-License-Identifier: Apache-2.0

#include <vyn/handler.h>

#include <algorithm>
#include <future>
#include <random>
#include <set>

#include "support/support.h"

// Functions and messages that wait in a loop, and are taken back.

namespace vyn {
namespace {

using namespace testing;

struct PostingTest : ::testing::Test {
    Connector loop;
    std::string journal;

    std::function<void()> note(char sign) {
        return [this, sign] { journal += sign; };
    }
};

TEST_F(PostingTest, CallsFunctionsInTheirTurnUntilTheyAreCancelled) {
    RecordingExecutor executor;
    loop.attach(&executor);
    executor.message = [&](Message) {
        journal += 'm';
        std::thread([&] { loop.cancel(0); }).join();  // waits for nothing, as it names nothing
    };
    const uint64_t cancelled = loop.post(note('x'));
    loop.post(note('1'));
    loop.post(note('0'), -10000);
    executor.sendMessage(Message::obtain());
    const uint64_t later = loop.post(note('x'), 10);
    loop.cancel(cancelled);
    loop.cancel(later);
    loop.cancel(cancelled);
    EXPECT_EQ(loop.post(nullptr), 0u);
    uint64_t periodic = 0;
    int calls = 0;
    periodic = loop.every(1, [&, token = std::make_shared<int>()] {
        EXPECT_TRUE(loop.isOnLoopThread() && token.use_count() == 1);
        if (++calls < 3) return;
        loop.cancel(periodic);
        EXPECT_EQ(token.use_count(), 1);  // it is not destroyed while it runs
        const auto end = [&] {
            EXPECT_EQ(calls, 3);
            loop.stop();
        };
        loop.post(end, 20);
    });
    loop.run();
    EXPECT_EQ(journal, "01m");
    EXPECT_FALSE(loop.isOnLoopThread());
}

TEST_F(PostingTest, IsOffTheLoopsThreadBehindAnException) {
    loop.post([] { throw 0; });
    EXPECT_THROW(loop.run(), int);
    EXPECT_FALSE(loop.isOnLoopThread());
}

TEST(Posting, DestroysWithTheLoopWhatHasNotRun) {
    struct Posting {
        Connector* loop;
        std::string* journal;
        Posting(Connector* target, std::string* notes) : loop(target), journal(notes) {}
        Posting(const Posting&) = delete;
        Posting& operator=(const Posting&) = delete;
        ~Posting() {
            *journal += 'd';
            loop->post([notes = journal] { *notes += 'x'; });
        }
    };
    std::string journal;
    {
        Connector loop;
        for (const long delay : {0, 1000}) {
            loop.post([held = std::make_shared<Posting>(&loop, &journal)] {}, delay);
        }
        loop.every(1000, [held = std::make_shared<Posting>(&loop, &journal)] {});
    }
    EXPECT_EQ(journal, "ddd");
}

TEST_F(PostingTest, DropsTheMessagesOfAnExecutorThatGoesButForCallbacks) {
    struct Callback : Message::Callback {
        std::string* journal;
        void onMessage(Message) override { *journal += 'c'; }
    } callback;
    callback.journal = &journal;
    std::multiset<int> dropped;
    loop.setDropListener([&](const Message& message) { dropped.insert(message.what); });
    RecordingExecutor stays;
    loop.attach(&stays);
    stays.message = [&](Message message) { journal += std::to_string(message.what); };
    {
        Handler goes(loop);
        for (const long delay : {0, 5, 10000}) {
            for (const int what : {1, 2, 3}) {
                goes.sendMessageDelayed(Message::obtain(what, 0, 0, nullptr), delay);
                stays.sendMessageDelayed(Message::obtain(what, 0, 0, nullptr), delay);
            }
            goes.sendMessageDelayed(Message::obtain(&callback, 4, 0, 0, nullptr), delay);
        }
        loop.removeMessages(&stays, 2);
        EXPECT_EQ(dropped, (std::multiset<int>{2, 2, 2}));
    }
    EXPECT_EQ(dropped.size(), 12u);
    loop.post([&] { loop.stop(); }, 20);
    loop.run();
    EXPECT_EQ(journal, "13c13c");
    loop.setDropListener(nullptr);
}

TEST(Posting, WaitsForWhatRunsElsewhereButNotOnTheThreadOfALoop) {
    LoopThread first, second;
    std::promise<uint64_t> begun;
    std::atomic<bool> over{false};
    std::promise<uint64_t> ids[2];
    std::shared_future<uint64_t> id[2] = {ids[0].get_future(), ids[1].get_future()};
    std::promise<void> crossed[2];
    const auto cross = [&](LoopThread& other, int own) {
        return [&, own] {
            crossed[own].set_value();
            crossed[1 - own].get_future().wait();
            other.connector().cancel(id[1 - own].get());  // which is under way
            if (own == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
                over = true;
            }
        };
    };
    ids[0].set_value(first.connector().post(cross(second, 0)));
    ids[1].set_value(second.connector().post(cross(first, 1)));
    id[1].wait();
    second.call([] {});
    first.connector().cancel(id[0].get());
    EXPECT_TRUE(over);
}

// What one of several threads does to a loop.
class Meddler {
  public:
    explicit Meddler(Connector& loop) : mLoop(loop) {
        loop.attach(&mInbox);
        mInbox.message = [this](Message message) {
            late += message.arg1 < mRemovedUpTo;
            delete static_cast<int*>(message.obj);
        };
    }

    void work(int operations, unsigned seed) {
        std::minstd_rand random(seed);
        for (int i = 0; i < operations; ++i) {
            const int delay = static_cast<int>(random() % 3) / 2;
            switch (random() % 8) {
                case 0:
                    mLoop.cancel(mPeriodic);
                    mPeriodic = mLoop.every(1 + delay, [] {});
                    break;
                case 1:
                    mLoop.removeMessages(&mInbox);
                    mRemovedUpTo = ++mGeneration;
                    break;
                case 2:
                case 3:
                    cancel(random());
                    break;
                case 4:
                case 5:
                    mInbox.sendMessageDelayed(Message::obtain(0, mGeneration, 0, new int), delay);
                    break;
                default:
                    post(delay);
            }
        }
    }
    int lost() const {
        return static_cast<int>(std::count_if(mTasks.begin(), mTasks.end(), [](const auto& task) {
            return !task->isCancelled && !task->hasRun;
        }));
    }
    // All functions are destroyed.
    bool areGone() const {
        return std::all_of(mTasks.begin(), mTasks.end(),
                           [](const auto& task) { return task.use_count() == 1; });
    }
    std::atomic<int> late{0};

  private:
    struct Task {
        uint64_t id = 0;
        std::atomic<bool> isCancelled{false};
        bool hasRun = false;
    };

    void post(int delay) {
        auto task = std::make_shared<Task>();
        mTasks.push_back(task);
        task->id = mLoop.post(
            [this, held = task.get(), task] {
                late += held->isCancelled || held->hasRun;
                held->hasRun = true;
            },
            delay);
    }
    void cancel(size_t choice) {
        if (mTasks.empty()) return;
        // Mostly one of those that may still wait.
        Task& task = *mTasks[mTasks.size() - 1 - choice % std::min<size_t>(mTasks.size(), 10)];
        mLoop.cancel(task.id);
        task.isCancelled = true;
    }

    Connector& mLoop;
    RecordingExecutor mInbox;
    std::atomic<int> mRemovedUpTo{0};
    int mGeneration = 0;
    uint64_t mPeriodic = 0;
    std::vector<std::shared_ptr<Task>> mTasks;
};

TEST(Posting, FromFourThreadsLosesNothingAndRunsNothingThatIsTakenBack) {
    for (unsigned round = 0; round < 8; ++round) {
        auto loop = std::make_unique<Connector>();
        loop->setDropListener(
            [](const Message& dropped) { delete static_cast<int*>(dropped.obj); });
        std::vector<std::unique_ptr<Meddler>> meddlers;
        for (int i = 0; i < 4; ++i) meddlers.push_back(std::make_unique<Meddler>(*loop));
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < 4; ++i) {
            threads.emplace_back([&, i] {
                meddlers[i]->work(300, round * 4 + i);
                if (round % 2 == 1) loop->requestStop();
                meddlers[i]->work(300, round * 4 + i + 100);
            });
        }
        std::thread end([&] {
            for (std::thread& thread : threads) thread.join();
            loop->post([&] { loop->stop(); }, 10);
        });
        loop->run();
        end.join();
        int lost = 0;
        int late = 0;
        for (const auto& meddler : meddlers) lost += meddler->lost();
        EXPECT_TRUE(lost == 0 || round % 2 == 1) << lost;
        loop.reset();
        for (const auto& meddler : meddlers) {
            EXPECT_TRUE(meddler->areGone());
            late += meddler->late;
        }
        EXPECT_EQ(late, 0);
    }
}

}  // namespace
}  // namespace vyn
