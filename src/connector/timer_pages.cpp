// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_pages.h"

#include <new>
#include <type_traits>

namespace vyn {

namespace {

// Ids start again at 0 behind this one.
constexpr int kLastCountedId = 2147483630;

// Pages that follow each other are neighbours in groups of this size, so that timers that are gone
// through in a row find theirs in the processor's cache.
constexpr int kGroupBits = 3;
constexpr size_t kFirstChains = 16;
constexpr int kFirstHashShift = 28 + kGroupBits;

}  // namespace

TimerPages::~TimerPages() {
    for (Page* chain : mChains) {
        while (Page* const page = chain) {
            chain = page->next;
            delete page;
        }
    }
}

TimerWrapper* TimerPages::add(Timer* timer) {
    const int id = mNextId;
    if (placeOf(id) == 0 || mOpen == nullptr) mOpen = makePage();
    takeId();
    ++mSize;
    mOpen->present |= bitOf(id);
    mOpen->notFreed |= bitOf(id);
    TimerWrapper* const made = new (&mOpen->timers[placeOf(id)]) TimerWrapper(timer);
    made->setId(id);
    return made;
}

void TimerPages::remove(TimerWrapper* timer) {
    pageOf(timer)->present ^= bitOf(timer->getId());
    --mSize;
}

bool TimerPages::isRemoved(const TimerWrapper* timer) {
    return (pageOf(timer)->present & bitOf(timer->getId())) == 0;
}

void TimerPages::free(TimerWrapper* timer) {
    Page* const page = pageOf(timer);
    page->notFreed ^= bitOf(timer->getId());
    if (page->notFreed != 0) return;
    if (page == mOpen) mOpen = nullptr;
    unlink(page);
    delete page;
}

TimerWrapper* TimerPages::oldest(int id) const {
    Page* found = nullptr;
    Page* page = mPages == 0 ? nullptr : mChains[hash(numberOf(id))];
    for (; page != nullptr; page = page->next) {
        if (page->number != numberOf(id) || (page->present & bitOf(id)) == 0) continue;
        if (found == nullptr || page->round < found->round) found = page;
    }
    return found == nullptr ? nullptr : &found->timers[placeOf(id)];
}

// As long as ids have not come round, there is no need to fetch the page.
uint64_t TimerPages::sequenceOf(const TimerWrapper* timer) const {
    const uint64_t round = mRound == 0 ? 0 : pageOf(timer)->round;
    return round << 32 | static_cast<uint32_t>(timer->getId());
}

TimerPages::Page* TimerPages::pageOf(const TimerWrapper* timer) {
    static_assert(std::is_standard_layout_v<Page>);  // so it begins where its first timer does
    const TimerWrapper* const first = timer - placeOf(timer->getId());
    return reinterpret_cast<Page*>(const_cast<TimerWrapper*>(first));
}

void TimerPages::takeId() {
    if (mNextId <= kLastCountedId) {
        ++mNextId;
    } else {
        mNextId = 0;
        ++mRound;
    }
}

TimerPages::Page* TimerPages::makePage() {
    if (mPages == mChains.size()) grow();
    Page* const page = new Page;
    page->round = mRound;
    page->number = numberOf(mNextId);
    link(page);
    ++mPages;
    return page;
}

// Multiplicative hashing (Knuth, The Art of Computer Programming 3, 6.4) spreads the groups evenly.
size_t TimerPages::hash(uint32_t number) const {
    const size_t group = (number >> kGroupBits) * 2654435769U >> mHashShift;
    return group << kGroupBits | (number & ((1U << kGroupBits) - 1));
}

void TimerPages::link(Page* page) {
    Page*& chain = mChains[hash(page->number)];
    page->next = chain;
    chain = page;
}

void TimerPages::unlink(Page* page) {
    Page** chain = &mChains[hash(page->number)];
    while (*chain != page) chain = &(*chain)->next;
    *chain = page->next;
    --mPages;
}

void TimerPages::grow() {
    const bool isFirst = mChains.empty();
    std::vector<Page*> old(isFirst ? kFirstChains : mChains.size() * 2);
    old.swap(mChains);
    mHashShift = isFirst ? kFirstHashShift : mHashShift - 1;
    for (Page* chain : old) {
        while (Page* const page = chain) {
            chain = page->next;
            link(page);
        }
    }
}

}  // namespace vyn
