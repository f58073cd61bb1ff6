// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn {

class Worker;

// While it lives, eager workers on this thread gather what they write instead of giving it to their
// devices at once. A read opens one for its worker, whose bytes leave at its end, and the loop
// opens one around the events of a turn: those of all other workers leave at the end of the
// outermost.
class GatherScope {
  public:
    // `reader` is the worker that reads, or null.
    explicit GatherScope(const Worker* reader) : mReader(reader) { ++tDepth; }
    ~GatherScope() {
        if (tFirst != nullptr) flushGathering();
        --tDepth;
    }
    GatherScope(const GatherScope&) = delete;
    GatherScope& operator=(const GatherScope&) = delete;

    static bool isOpen() { return tDepth > 0; }
    // Finds out whether what an eager worker writes may be gathered.
    static void learnKind(Worker* worker);
    // The worker has gathered something; it has a Flow.
    static void add(Worker* worker);
    // It has not, or ends.
    static void remove(Worker* worker);
    // Whether what this worker gathered is being written on this thread.
    static bool isFlushing(const Worker* worker) { return tFlushed == worker; }

  private:
    void flushGathering();
    static void flush(Worker* worker);

    static inline thread_local int tDepth = 0;
    static inline thread_local Worker* tFirst = nullptr;
    static inline thread_local const Worker* tFlushed = nullptr;

    const Worker* mReader;
};

}  // namespace vyn
