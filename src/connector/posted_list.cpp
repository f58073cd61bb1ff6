// SPDX-License-Identifier: Apache-2.0

#include "connector/posted_list.h"

namespace vyn {

Posted* PostedList::append(Posted* newest) {
    Posted* const last = newest;
    Posted* oldest = nullptr;
    for (; newest != nullptr; ++mSize) {
        Posted* const older = newest->next;
        newest->next = oldest;
        oldest = newest;
        newest = older;
    }
    if (isEmpty()) {
        mFirst.store(oldest, std::memory_order_relaxed);
    } else {
        mLast->next = oldest;
    }
    mLast = last;
    return oldest;
}

}  // namespace vyn
