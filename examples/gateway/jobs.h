#pragma once

#include <vyn/lock.h>
#include <vyn/message.h>
#include <vyn/thread_pool.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

// Does work that would hold up the loop on other threads, and brings the results back to the loop
// as messages.
class Jobs : public vyn::Message::Callback {
  public:
    using Work = std::function<std::string()>;
    using Done = std::function<void(const std::string& result)>;

    // The executor's loop gets the results.
    explicit Jobs(vyn::Connector::Executor& executor) : mExecutor(executor) {}

    // Calls `work` on another thread, and then `done` on the loop's unless the loop ends before.
    void run(Work work, Done done) {
        mPool.addTask(new Job(*this, std::move(work), std::move(done)));
    }

    void onMessage(vyn::Message) override {
        std::vector<std::pair<Done, std::string>> finished;
        {
            vyn::AutoLock lock(mLock);
            finished.swap(mFinished);
        }
        for (const auto& [done, result] : finished) done(result);
    }

  private:
    struct Job : vyn::ThreadPool::Task {
        Job(Jobs& itsJobs, Work itsWork, Done itsDone)
            : jobs(itsJobs), work(std::move(itsWork)), done(std::move(itsDone)) {}
        void run() override { jobs.finish(std::move(done), work()); }

        Jobs& jobs;
        const Work work;
        Done done;
    };

    // The message only tells that there are results: a message that is never delivered, since the
    // loop has ended, would lose what it carries.
    void finish(Done done, std::string result) {
        vyn::AutoLock lock(mLock);
        mFinished.emplace_back(std::move(done), std::move(result));
        if (mFinished.size() > 1) return;
        mExecutor.sendMessage(vyn::Message::obtain(this, 0, 0, 0, nullptr));
    }

    vyn::Connector::Executor& mExecutor;
    vyn::Lock mLock;
    std::vector<std::pair<Done, std::string>> mFinished VYN_GUARDED_BY(mLock);
    vyn::ThreadPool mPool{2};  // the last member: its threads end before the others go
};
