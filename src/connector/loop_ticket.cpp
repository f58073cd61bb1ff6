// SPDX-License-Identifier: Apache-2.0

#include "connector/loop_ticket.h"

#include <vyn/connector.h>
#include <vyn/lock.h>
#include <vyn/thread_annotations.h>

#include <map>
#include <utility>

namespace vyn {

namespace {

// The loops that have tickets, each with a number that no other ever gets: a loop may be made where
// another was.
struct Loops {
    Lock lock;
    std::map<const Connector*, uint64_t> numbers VYN_GUARDED_BY(lock);
    uint64_t last VYN_GUARDED_BY(lock) = 0;
};

// Never destroyed: loops may still end when the process exits.
Loops& allLoops() {
    static Loops* const loops = new Loops();
    return *loops;
}

}  // namespace

LoopTicket::LoopTicket(Connector& loop) : mLoop(&loop), mNumber(0) {
    Loops& loops = allLoops();
    AutoLock lock(loops.lock);
    const auto [entry, isNew] = loops.numbers.try_emplace(&loop, loops.last + 1);
    if (isNew) ++loops.last;
    mNumber = entry->second;
}

// The lock keeps the loop from going meanwhile.
bool LoopTicket::post(std::function<void()>& function) const {
    Loops& loops = allLoops();
    AutoLock lock(loops.lock);
    const auto found = loops.numbers.find(mLoop);
    if (found == loops.numbers.end() || found->second != mNumber) return false;
    mLoop->post(std::move(function));
    return true;
}

void LoopTicket::prepare() { allLoops(); }

void LoopTicket::end(Connector* loop) {
    Loops& loops = allLoops();
    AutoLock lock(loops.lock);
    loops.numbers.erase(loop);
}

}  // namespace vyn
