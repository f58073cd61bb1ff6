// SPDX-License-Identifier: Apache-2.0

#include <vyn/archive.h>

#include <cstring>
#include <msgpack.hpp>

#include "codec/codec.h"
#include "support/repeat.h"

// 1,000 items of 32 bytes. Flattening starts from items that are in memory already, parsing ends
// with items that own their bytes. "write" is the way of an object: its fields are put in and
// flattened; "read" is the way back, parsed and taken out.
namespace bench {

namespace {

constexpr int kItems = 1000;
constexpr int kItemSize = 32;

using Bytes = std::vector<char>;

std::vector<Bytes> items() {
    const std::string bytes = noise(kItemSize);
    return std::vector<Bytes>(kItems, Bytes(bytes.begin(), bytes.end()));
}

void fill(vyn::Archive& archive, const std::vector<Bytes>& fields) {
    for (const Bytes& field : fields) archive.put(field.data(), kItemSize);
}

vyn::Buffer flatBlock() {
    vyn::Archive archive;
    fill(archive, items());
    vyn::Buffer flat;
    archive.copyTo(flat);
    return flat;
}

double flattenOurs() {
    vyn::Archive archive;
    fill(archive, items());
    vyn::Buffer flat;
    return nanosecondsFor([&] {
        archive.copyTo(flat);
        keep(flat.data);
    });
}

double flattenMsgpack() {
    const std::vector<Bytes> fields = items();
    msgpack::sbuffer flat;
    return nanosecondsFor([&] {
        flat.clear();  // keeps its memory
        msgpack::pack(flat, fields);
        keep(flat.data());
    });
}

double parseOurs() {
    const vyn::Buffer flat = flatBlock();
    return nanosecondsFor([&flat] {
        const vyn::Archive archive(flat.data, flat.size);
        keep(archive);
    });
}

double parseMsgpack() {
    msgpack::sbuffer flat;
    msgpack::pack(flat, items());
    return nanosecondsFor([&flat] { keep(msgpack::unpack(flat.data(), flat.size())); });
}

double writeOurs() {
    const std::vector<Bytes> fields = items();
    return nanosecondsFor([&] {
        vyn::Archive archive;
        fill(archive, fields);
        vyn::Buffer flat;
        archive.copyTo(flat);
        keep(flat.data);
    });
}

double writeMsgpack() {
    const std::vector<Bytes> fields = items();
    return nanosecondsFor([&] {
        msgpack::sbuffer flat;
        msgpack::pack(flat, fields);
        keep(flat.data());
    });
}

double readOurs() {
    const vyn::Buffer flat = flatBlock();
    std::vector<Bytes> taken = items();
    return nanosecondsFor([&] {
        vyn::Archive archive(flat.data, flat.size);
        for (Bytes& field : taken) archive.get(field.data(), kItemSize);
        keep(taken[0][0]);
    });
}

double readMsgpack() {
    msgpack::sbuffer flat;
    msgpack::pack(flat, items());
    std::vector<Bytes> taken = items();
    return nanosecondsFor([&] {
        msgpack::unpack(flat.data(), flat.size()).get().convert(taken);
        keep(taken[0][0]);
    });
}

// The limit: the flat block copied once.
double copy() {
    const vyn::Buffer flat = flatBlock();
    std::string copied(static_cast<size_t>(flat.size), '\0');
    return nanosecondsFor([&] {
        std::memcpy(copied.data(), flat.data, copied.size());
        keep(copied[0]);
    });
}

}  // namespace

std::vector<Contest> archiveContests() {
    return {timed("archive-flatten", "ours", flattenOurs),
            timed("archive-flatten", "msgpack", flattenMsgpack),
            timed("archive-flatten", "memcpy", copy),
            timed("archive-parse", "ours", parseOurs),
            timed("archive-parse", "msgpack", parseMsgpack),
            timed("archive-parse", "memcpy", copy),
            timed("archive-write", "ours", writeOurs),
            timed("archive-write", "msgpack", writeMsgpack),
            timed("archive-read", "ours", readOurs),
            timed("archive-read", "msgpack", readMsgpack)};
}

}  // namespace bench
