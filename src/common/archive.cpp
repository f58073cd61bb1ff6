// SPDX-License-Identifier: Apache-2.0

#include <vyn/archive.h>
#include <vyn/logging.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "common/archive_items.h"
#include "common/countable.h"

namespace vyn {

namespace {

constexpr int kAbnormalSize = 100 * 1024 * 1024;

}  // namespace

Archive::Archive() : mItems(std::make_unique<ArchiveItems>(mRoom)) {}

Archive::Archive(const void* data, int len) : Archive() { putSerializeData(data, len); }

Archive::~Archive() = default;

void Archive::clear() {
    mItems->clear();
    mOk = true;
}

bool Archive::empty() const { return mItems->empty(); }

Archive& Archive::operator<<(const std::string& text) {
    put(text.c_str(), countable(text.length() + 1));
    return *this;
}

Archive& Archive::operator<<(const char* text) {
    put(text, text == nullptr ? 0 : countable(std::strlen(text) + 1));
    return *this;
}

Archive& Archive::operator<<(const Buffer& buffer) {
    put(buffer.data, buffer.size);
    return *this;
}

bool Archive::putSerializeData(const void* data, int len) {
    const char* const records = static_cast<const char*>(data);
    const char* cursor = records;
    int remaining = data == nullptr ? 0 : len;
    bool isWhole = true;
    while (remaining > ArchiveItems::kLengthSize) {
        const int length = ArchiveItems::itemAt(cursor).size;
        remaining -= ArchiveItems::kLengthSize;
        if (length < 0 || length > remaining) {
            VYN_LOG_ERROR << "archive record of " << length << " bytes is invalid, the "
                          << remaining << " bytes behind its length are not read.";
            isWhole = false;
            break;
        }
        cursor += ArchiveItems::kLengthSize + length;
        remaining -= length;
    }
    mItems->addRecords(records, static_cast<size_t>(cursor - records));
    mOk = mOk && isWhole;
    return isWhole;
}

bool Archive::ok() const { return mOk; }

void Archive::get(void* bytes, int n) {
    if (empty()) return;
    mItems->takeFirst([&](const ArchiveItems::Item& item) {
        const int taken = bytes == nullptr ? 0 : std::min(item.size, n);
        if (taken > 0) std::memcpy(bytes, item.bytes, static_cast<size_t>(taken));
    });
}

void Archive::get(Buffer& buffer) {
    if (empty()) return;
    mItems->takeFirst(
        [&](const ArchiveItems::Item& item) { buffer.assign(item.bytes, item.size); });
}

Archive& Archive::operator>>(Buffer& buffer) {
    get(buffer);
    return *this;
}

Archive& Archive::operator>>(std::string& text) {
    if (empty()) return *this;
    mItems->takeFirst([&](const ArchiveItems::Item& item) {
        if (item.size < 1) return;
        text.assign(item.bytes, strnlen(item.bytes, static_cast<size_t>(item.size)));
    });
    return *this;
}

void Archive::copyTo(Buffer& out) const {
    const size_t total = mItems->size();
    // A block that is no longer itself needs not be searched for abnormal items.
    for (size_t at = total > kAbnormalSize ? 0 : total; at < total;) {
        const ArchiveItems::Item item = ArchiveItems::itemAt(mItems->records() + at);
        if (item.size > kAbnormalSize) VYN_LOG_INFO << "len is abnormal, len = " << item.size;
        at += ArchiveItems::recordSize(item.size);
    }
    if (total > INT_MAX) {
        VYN_LOG_ERROR << "archive of " << total << " bytes does not fit into a buffer, which stays"
                      << " empty.";
    }
    out.assign(mItems->records(), total > INT_MAX ? 0 : static_cast<int>(total));
}

void Archive::putAny(const void* bytes, int n) { mItems->add(bytes, n); }

Serializer::~Serializer() = default;

void Serializer::saveTo(Buffer& out) {
    Archive archive;
    serialize(archive);
    archive.copyTo(out);
}

bool Serializer::loadFrom(const Buffer& in) {
    Archive archive(in.data, in.size);
    deserialize(archive);
    return archive.ok();
}

}  // namespace vyn
