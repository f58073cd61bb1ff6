// SPDX-License-Identifier: Apache-2.0

#include "connector/loop_ticket.h"

#include <vyn/connector.h>
#include <vyn/lock.h>
#include <vyn/thread_annotations.h>

#include <map>
#include <utility>

namespace vyn {

namespace {

struct Loop {
    uint64_t number;  // which no other loop ever gets: it may be made where another was
    std::list<LoopTicket::Posted> posted;
};

// The loops that have tickets.
struct Loops {
    Lock lock;
    std::map<Connector*, Loop> known VYN_GUARDED_BY(lock);
    uint64_t last VYN_GUARDED_BY(lock) = 0;
};

// Never destroyed: loops may still end when the process exits.
Loops& allLoops() {
    static Loops* const loops = new Loops();
    return *loops;
}

}  // namespace

// Takes itself out of the list first: the function may do what it likes.
void LoopTicket::Posted::onMessage(Message) {
    std::list<Posted> self;
    {
        Loops& loops = allLoops();
        AutoLock lock(loops.lock);
        std::list<Posted>& posted = loops.known.find(loop)->second.posted;
        self.splice(self.begin(), posted, place);
    }
    function();
}

LoopTicket::LoopTicket(Connector& loop) : mLoop(&loop), mNumber(0) {
    Loops& loops = allLoops();
    AutoLock lock(loops.lock);
    const auto [entry, isNew] = loops.known.try_emplace(&loop, Loop{loops.last + 1, {}});
    if (isNew) ++loops.last;
    mNumber = entry->second.number;
}

// The lock keeps the loop from going meanwhile.
bool LoopTicket::post(std::function<void()>& function) const {
    std::list<Posted> made(1);
    Loops& loops = allLoops();
    AutoLock lock(loops.lock);
    const auto found = loops.known.find(mLoop);
    if (found == loops.known.end() || found->second.number != mNumber) return false;
    Posted& posted = made.front();
    posted.function = std::move(function);
    posted.loop = mLoop;
    posted.place = made.begin();
    mLoop->sendMessageDelayed(nullptr, Message::obtain(&posted, 0, 0, 0, nullptr), 0);
    found->second.posted.splice(found->second.posted.end(), made);
    return true;
}

std::list<LoopTicket::Posted> LoopTicket::end(Connector* loop) {
    std::list<Posted> waiting;
    Loops& loops = allLoops();
    AutoLock lock(loops.lock);
    const auto found = loops.known.find(loop);
    if (found == loops.known.end()) return waiting;
    waiting.swap(found->second.posted);
    loops.known.erase(found);
    return waiting;
}

}  // namespace vyn
