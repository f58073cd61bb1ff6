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
#include <vyn/connector.h>
#include <vyn/thread_pool.h>

#include <iostream>
#include <memory>
#include <string>

// Takes its time, and knows nothing of loops.
std::string answerSlowly(int question) {
    usleep(100000);
    return std::to_string(question) + " squared is " + std::to_string(question * question);
}

class Queries {
  public:
    explicit Queries(vyn::Connector& loop) : mLoop(loop) {}
    // The first function runs on a thread of the pool and the second on the loop's, when the first
    // has ended. What one has for the other belongs to both.
    void ask(int question) {
        const auto answer = std::make_shared<std::string>();
        mPool.addTask([question, answer] { *answer = answerSlowly(question); }, mLoop,
                      [this, answer] { show(*answer); });
    }
    int answers() const { return mAnswers; }

  private:
    void show(const std::string& answer) {
        std::cout << "answer: " << answer << std::endl;
        if (++mAnswers == 3) mLoop.stop();
    }

    vyn::Connector& mLoop;
    int mAnswers = 0;
    vyn::ThreadPool mPool{2};
};

int main() {
    vyn::Connector loop;
    int ticks = 0;
    loop.every(20, [&ticks] {
        ++ticks;
        std::cout << "the loop goes on" << std::endl;
    });
    Queries queries(loop);
    std::cout << "three queries are under way" << std::endl;
    for (const int question : {7, 11, 13}) queries.ask(question);
    loop.run();
    return queries.answers() == 3 && ticks > 0 ? 0 : 1;
}
