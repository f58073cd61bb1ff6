// SPDX-License-Identifier: Apache-2.0

// Work that blocks, such as a query of a slow disk, beside the loop: the threads of a pool do it,
// and its results come back to the loop's thread. Meanwhile the loop goes on. Prints:
//
//     three queries are under way
//     the loop goes on
//     ...
//     answer: ...
//     answer: ...
//     answer: ...
#include <unistd.h>
#include <vyn/handler.h>
#include <vyn/lock.h>
#include <vyn/thread_pool.h>
#include <vyn/timer.h>

#include <iostream>
#include <string>
#include <utility>
#include <vector>

// Takes its time, and knows nothing of loops.
std::string answerSlowly(int question) {
    usleep(100000);
    return std::to_string(question) + " squared is " + std::to_string(question * question);
}

class Queries : public vyn::Handler {
  public:
    using Handler::Handler;
    void ask(int question) {
        mPool.addTask([this, question] { finish(answerSlowly(question)); });
    }
    size_t answers() const { return mAnswers; }

  private:
    // A message could be lost with the loop, and what it brings. So it carries nothing but the news
    // that there are answers.
    void onMessage(vyn::Message) override {
        std::vector<std::string> found;
        {
            vyn::AutoLock lock(mLock);
            found.swap(mFound);
        }
        for (const std::string& each : found) std::cout << "answer: " << each << std::endl;
        mAnswers += found.size();
        if (mAnswers == 3) mLoop.stop();
    }
    // On a thread of the pool.
    void finish(std::string answer) {
        {
            vyn::AutoLock lock(mLock);
            mFound.push_back(std::move(answer));
        }
        sendMessage(vyn::Message::obtain());
    }

    size_t mAnswers = 0;
    vyn::Lock mLock;
    std::vector<std::string> mFound VYN_GUARDED_BY(mLock);
    vyn::ThreadPool mPool{2};  // the last member: its threads end before the others go
};

// Shows that the loop is free.
struct Ticker : vyn::Timer {
    bool onTimer(void*, int count) override {
        std::cout << "the loop goes on" << std::endl;
        ticks = count;
        return true;
    }
    int ticks = 0;
};

int main() {
    vyn::Connector loop;
    Ticker ticker;
    loop.addTimer(&ticker, 20, nullptr);
    Queries queries(loop);
    std::cout << "three queries are under way" << std::endl;
    for (const int question : {7, 11, 13}) queries.ask(question);
    loop.run();
    return queries.answers() == 3 && ticker.ticks > 0 ? 0 : 1;
}
