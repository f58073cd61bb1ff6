// SPDX-License-Identifier: Apache-2.0

#include <vyn/helper.h>
#include <vyn/logging.h>
#include <vyn/thread_pool.h>

#include <new>
#include <sstream>

namespace vyn {

namespace {

constexpr long kTimeoutMs = 10001;

long elapsedSince(long start) { return helper::tickDifference(helper::mtick(), start); }

}  // namespace

std::string ThreadPool::checkTaskTimeout() {
    std::ostringstream text;
    Condition::Holder holder(mTimeCond);
    for (const auto& [id, start] : mRunningSince) {
        const long elapsed = elapsedSince(start);
        if (elapsed < kTimeoutMs) continue;
        text << "{ Task id:" << id << ", cost " << elapsed << " ms.}, ";
    }
    return text.str();
}

void ThreadPool::recordStart(int id) {
    const long start = helper::mtick();
    Condition::Holder holder(mTimeCond);
    try {
        mRunningSince[id] = start;
    } catch (const std::bad_alloc&) {
        // The task is not timed.
    }
}

void ThreadPool::reportTime(const Task* task, int id) {
    long elapsed = 0;
    {
        Condition::Holder holder(mTimeCond);
        const auto entry = mRunningSince.find(id);
        if (entry == mRunningSince.end()) return;
        elapsed = elapsedSince(entry->second);
        mRunningSince.erase(entry);
    }
    if (elapsed < kTimeoutMs) return;
    VYN_LOG_WARNING << "[Warning] task " << static_cast<const void*>(task) << ", Id: " << id
                    << " running timeout. costs " << elapsed << " ms.";
}

// Tasks still running are not reported any more.
void ThreadPool::forgetStarts() {
    Condition::Holder holder(mTimeCond);
    mRunningSince.clear();
}

}  // namespace vyn
