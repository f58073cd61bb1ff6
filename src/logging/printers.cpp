// SPDX-License-Identifier: Apache-2.0

#include "logging/printers.h"

#include <pthread.h>
#include <sys/time.h>

#include <new>

namespace logging {

namespace {

std::atomic<LogPrinter*> gPrinter{nullptr};
std::atomic<DetailedLogPrinter*> gDetailed{nullptr};

// How many printers the calling thread is in.
thread_local int tInside = 0;

// Knows whether threads are in printers. They are counted by turns of two: who waits begins a new
// turn, so that those who come later do not keep it waiting. Nothing here is ever destroyed.
class Gate {
  public:
    // Returns the turn, for leave().
    int enter() {
        for (;;) {
            const int turn = mTurn.load();
            mInside[turn].fetch_add(1);
            // Else somebody may wait already who has not seen this thread.
            if (mTurn.load() == turn) return turn;
            leave(turn);
        }
    }

    void leave(int turn) {
        if (mInside[turn].fetch_sub(1) != 1 || !mIsAwaited.load()) return;
        pthread_mutex_lock(&mMutex);
        pthread_cond_broadcast(&mLeft);
        pthread_mutex_unlock(&mMutex);
    }

    // Waits until all have left who are inside now.
    void awaitAll() {
        pthread_mutex_lock(&mAwaiting);
        pthread_mutex_lock(&mMutex);
        const int turn = mTurn.load();
        mIsAwaited = true;
        mTurn = 1 - turn;
        while (mInside[turn].load() > 0) pthread_cond_wait(&mLeft, &mMutex);
        mIsAwaited = false;
        pthread_mutex_unlock(&mMutex);
        pthread_mutex_unlock(&mAwaiting);
    }

  private:
    std::atomic<int> mTurn{0};
    std::atomic<int> mInside[2]{{0}, {0}};
    std::atomic<bool> mIsAwaited{false};
    pthread_mutex_t mAwaiting = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t mLeft = PTHREAD_COND_INITIALIZER;
};

Gate gGate;

// A forked child has none of the threads that were inside.
void startAnewInChildren() {
    [[maybe_unused]] static const int result =
        pthread_atfork(nullptr, nullptr, [] { new (&gGate) Gate; });
}

class Visit {
  public:
    Visit() : mTurn(gGate.enter()) { ++tInside; }
    ~Visit() {
        --tInside;
        gGate.leave(mTurn);
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

  private:
    const int mTurn;
};

// A thread that is in a printer itself, or two that remove each other's, would wait for ever.
template <typename Printer>
void replace(std::atomic<Printer*>& place, Printer* printer) {
    startAnewInChildren();
    const Printer* const former = place.exchange(printer);
    if (former != nullptr && former != printer && tInside == 0) gGate.awaitAll();
}

int64_t wallClockUs() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_usec;
}

}  // namespace

void setLoggingPrinter(LogPrinter* printer) { replace(gPrinter, printer); }

void setDetailedLoggingPrinter(DetailedLogPrinter* printer) { replace(gDetailed, printer); }

namespace printers {

void print(const std::string& line, LogRecord record) {
    // Most programs have none, which is known without counting.
    const auto relaxed = std::memory_order_relaxed;
    if (gPrinter.load(relaxed) == nullptr && gDetailed.load(relaxed) == nullptr) return;
    const Visit visit;
    if (LogPrinter* const printer = gPrinter.load()) printer->print(line);
    if (DetailedLogPrinter* const printer = gDetailed.load()) {
        record.timeUs = wallClockUs();
        record.threadId = currentThreadId();
        printer->print(record);
    }
}

}  // namespace printers

}  // namespace logging
