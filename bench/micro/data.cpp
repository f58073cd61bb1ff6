// SPDX-License-Identifier: Apache-2.0

#include <vyn/archive.h>
#include <vyn/buffer.h>
#include <vyn/helper.h>

#include <string>

#include "micro/micro.h"

namespace bench {

namespace {

using benchmark::DoNotOptimize;

const std::string kMessage(64, 'm');
const std::string kPage(4096, 'p');
constexpr int kMessageSize = 64;
constexpr int kPageSize = 4096;

void copyBuffer(benchmark::State& state) {
    for (auto _ : state) DoNotOptimize(vyn::Buffer(kMessage.data(), kMessageSize).data);
}

void appendToBuffer(benchmark::State& state) {
    for (auto _ : state) {
        vyn::Buffer buffer(kMessage.data(), kMessageSize);
        buffer.append(kMessage.data(), kMessageSize);
        DoNotOptimize(buffer.data);
    }
}

void eraseFromBuffer(benchmark::State& state) {
    for (auto _ : state) {
        vyn::Buffer buffer(kMessage.data(), kMessageSize);
        buffer.erase_before(4);
        DoNotOptimize(buffer.data);
    }
}

// An object of ten fields, there and back.
void carryObject(benchmark::State& state) {
    for (auto _ : state) {
        vyn::Archive written;
        for (int i = 0; i < 10; ++i) written.put(&i, sizeof i);
        vyn::Buffer flat;
        written.copyTo(flat);
        vyn::Archive archive(flat.data, flat.size);
        int field = 0;
        for (int i = 0; i < 10; ++i) archive.get(&field, sizeof field);
        DoNotOptimize(field);
    }
}

void checksum(benchmark::State& state) {
    for (auto _ : state) DoNotOptimize(vyn::helper::crc32(kPage.data(), kPageSize));
}

void md5(benchmark::State& state) {
    for (auto _ : state) DoNotOptimize(vyn::helper::md5sum(kPage.data(), kPageSize));
}

void encodeHex(benchmark::State& state) {
    const vyn::Buffer buffer(kPage.data(), kPageSize);
    for (auto _ : state) DoNotOptimize(buffer.toHexString());
}

void decodeHex(benchmark::State& state) {
    const std::string text = vyn::Buffer(kPage.data(), kPageSize).toHexString();
    vyn::Buffer buffer;
    for (auto _ : state) {
        buffer.fromHexString(text);
        DoNotOptimize(buffer.data);
    }
}

void split(benchmark::State& state) {
    const std::string text = "name=recorder,port=7007,address=192.168.1.20,,retries=3";
    for (auto _ : state) DoNotOptimize(vyn::helper::split(text, ','));
}

}  // namespace

std::vector<Micro> dataMicros() {
    return {{"buffer-copy-64", copyBuffer},
            {"buffer-append-64", appendToBuffer},
            {"buffer-erase-64", eraseFromBuffer},
            {"archive-10-fields", carryObject},
            {"checksum-4096", checksum},
            {"md5-4096", md5},
            {"hex-encode-4096", encodeHex},
            {"hex-decode-4096", decodeHex},
            {"split-5", split}};
}

}  // namespace bench
