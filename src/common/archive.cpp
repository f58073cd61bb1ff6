#include <vyn/archive.h>
#include <vyn/logging.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <utility>

#include "common/little_endian.h"

namespace vyn {

namespace {

constexpr int kLengthSize = 4;
constexpr int kAbnormalSize = 100 * 1024 * 1024;

// Adds a record at `to` and returns where the next one goes.
char* writeRecord(char* to, const Buffer& item) {
    little_endian::store(to, static_cast<uint32_t>(item.size));
    to += kLengthSize;
    if (item.size < 1) return to;
    std::memcpy(to, item.data, static_cast<size_t>(item.size));
    return to + item.size;
}

}  // namespace

Archive::Archive() = default;

Archive::Archive(const void* data, int len) { putSerializeData(data, len); }

Archive::~Archive() = default;

void Archive::clear() { mItems.clear(); }

bool Archive::empty() const { return mItems.empty(); }

void Archive::put(const void* bytes, int n) {
    mItems.push_back(std::make_unique<Buffer>(bytes, n));
}

Archive& Archive::operator<<(const std::string& text) {
    mItems.push_back(std::make_unique<Buffer>(text));
    return *this;
}

Archive& Archive::operator<<(const Buffer& buffer) {
    put(buffer.data, buffer.size);
    return *this;
}

void Archive::putSerializeData(const void* data, int len) {
    const char* cursor = static_cast<const char*>(data);
    int remaining = data == nullptr ? 0 : len;
    while (remaining > kLengthSize) {
        const int length = static_cast<int32_t>(little_endian::load(cursor));
        remaining -= kLengthSize;
        if (length < 0 || length > remaining) {
            VYN_LOG_ERROR << "archive record of " << length << " bytes is invalid, the "
                          << remaining << " bytes behind its length are not read.";
            return;
        }
        put(cursor + kLengthSize, length);
        cursor += kLengthSize + length;
        remaining -= length;
    }
}

void Archive::get(void* bytes, int n) {
    const std::unique_ptr<Buffer> item = takeFirst();
    if (item == nullptr) return;
    const int taken = std::min(item->size, n);
    if (taken > 0) std::memcpy(bytes, item->data, static_cast<size_t>(taken));
}

// The item dies right away, so its block is handed over instead of copied.
void Archive::get(Buffer& buffer) {
    const std::unique_ptr<Buffer> item = takeFirst();
    if (item == nullptr) return;
    std::swap(buffer.size, item->size);
    std::swap(buffer.data, item->data);
}

Archive& Archive::operator>>(Buffer& buffer) {
    get(buffer);
    return *this;
}

Archive& Archive::operator>>(std::string& text) {
    const std::unique_ptr<Buffer> item = takeFirst();
    if (item == nullptr || item->isEmpty()) return *this;
    text.assign(item->data, strnlen(item->data, static_cast<size_t>(item->size)));
    return *this;
}

std::unique_ptr<Buffer> Archive::takeFirst() {
    if (mItems.empty()) return nullptr;
    std::unique_ptr<Buffer> item = std::move(mItems.front());
    mItems.pop_front();
    return item;
}

void Archive::copyTo(Buffer& out) const {
    int64_t total = 0;
    for (const auto& item : mItems) {
        if (item->size > kAbnormalSize) {
            VYN_LOG_INFO << "len is abnormal, len = " << item->size;
        }
        total += kLengthSize + std::max(item->size, 0);
    }
    if (total > INT_MAX) {
        VYN_LOG_ERROR << "archive of " << total << " bytes does not fit into a buffer, which stays"
                      << " empty.";
    }
    out.assign(total > INT_MAX ? 0 : static_cast<int>(total), 0);
    char* to = out.data;
    if (to == nullptr) return;
    for (const auto& item : mItems) to = writeRecord(to, *item);
}

Serializer::~Serializer() = default;

void Serializer::saveTo(Buffer& out) {
    Archive archive;
    serialize(archive);
    archive.copyTo(out);
}

void Serializer::loadFrom(const Buffer& in) {
    Archive archive(in.data, in.size);
    deserialize(archive);
}

}  // namespace vyn
