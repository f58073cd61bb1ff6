// SPDX-License-Identifier: Apache-2.0

#include <vyn/framing.h>

namespace vyn {

void FramingBuffer::append(const void* data, int len) {
    offer(data, len);
    keep();
}

std::string FramingBuffer::takeRest() {
    std::string rest(mUnread);
    mUnread = {};
    keep();
    return rest;
}

void FramingBuffer::clear() {
    mIsRefused = false;
    mUnread = {};
    keep();
}

void FramingBuffer::offer(const void* data, int len) {
    if (mIsRefused || data == nullptr || len < 1) return;
    const std::string_view arrived(static_cast<const char*>(data), static_cast<size_t>(len));
    if (mUnread.empty()) {
        mIsKept = false;
        mUnread = arrived;
    } else {
        keep();
        mUnread = mKept.append(arrived);
    }
}

// What is kept already is not moved, so that of one read nothing is copied more than once.
void FramingBuffer::settle() {
    if (!mIsKept && !mUnread.empty()) keep();
}

FramingBuffer::Result FramingBuffer::waitForMore() {
    keep();
    return kIncomplete;
}

FramingBuffer::Result FramingBuffer::refuse() {
    mIsRefused = true;
    mUnread = {};
    keep();
    return kTooLong;
}

// Leaves in mKept what is unread, and gives its memory back when that is nothing.
void FramingBuffer::keep() {
    if (mUnread.empty()) {
        mKept = std::string();
    } else if (mIsKept) {
        mKept.erase(0, mKept.size() - mUnread.size());
    } else {
        mKept = mUnread;
    }
    mIsKept = true;
    mUnread = mKept;
}

}  // namespace vyn
