// SPDX-License-Identifier: Apache-2.0

#include <vyn/buffer.h>
#include <vyn/digest.h>
#include <vyn/helper.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "common/little_endian.h"

// The MD5 digest, RFC 1321.
namespace vyn::helper {

namespace {

constexpr size_t kBlockSize = sizeof(md5ctx::block);
constexpr size_t kLengthSize = 8;

// The first 32 bits of the fraction of |sin(step + 1)|.
constexpr uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};
constexpr int kRotations[4][4] = {
    {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// The function of each round of 16 steps. The two terms of the second never share a bit, so they
// may be added instead of united; only one of them then waits for the step before.
template <size_t Round>
uint32_t mix(uint32_t b, uint32_t c, uint32_t d) {
    if constexpr (Round == 0) return d ^ (b & (c ^ d));
    if constexpr (Round == 1) return (b & d) + (c & ~d);
    if constexpr (Round == 2) return b ^ c ^ d;
    if constexpr (Round == 3) return c ^ (b | ~d);
}

template <size_t Step>
constexpr size_t wordOfStep() {
    constexpr size_t kFactors[] = {1, 5, 3, 7};
    constexpr size_t kOffsets[] = {0, 1, 5, 0};
    return (kFactors[Step / 16] * Step + kOffsets[Step / 16]) % 16;
}

// One of the 64 steps; the four words change their parts from step to step.
template <size_t Step>
void addStep(uint32_t (&words)[4], const uint8_t* block) {
    constexpr size_t kA = (64 - Step) % 4, kB = (kA + 1) % 4, kC = (kA + 2) % 4, kD = (kA + 3) % 4;
    constexpr int kLeft = kRotations[Step / 16][Step % 4];
    const uint32_t sum = words[kA] + kSines[Step] +
                         little_endian::load(block + 4 * wordOfStep<Step>()) +
                         mix<Step / 16>(words[kB], words[kC], words[kD]);
    words[kA] = words[kB] + (sum << kLeft | sum >> (32 - kLeft));
}

template <size_t... Steps>
void addSteps(uint32_t (&words)[4], const uint8_t* block, std::index_sequence<Steps...>) {
    (addStep<Steps>(words, block), ...);
}

void addBlock(md5ctx& ctx, const uint8_t* block) {
    uint32_t words[4] = {ctx.state[0], ctx.state[1], ctx.state[2], ctx.state[3]};
    addSteps(words, block, std::make_index_sequence<64>{});
    for (size_t i = 0; i < 4; ++i) ctx.state[i] += words[i];
}

void hash_update(const char* data, size_t len, md5ctx& ctx) {
    if (len == 0) return;
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(data);
    const size_t held = ctx.count % kBlockSize;
    size_t rest = len;
    ctx.count += len;
    if (held != 0) {
        const size_t taken = std::min(rest, kBlockSize - held);
        std::memcpy(ctx.block + held, bytes, taken);
        bytes += taken;
        rest -= taken;
        if (held + taken < kBlockSize) return;
        addBlock(ctx, ctx.block);
    }
    for (; rest >= kBlockSize; rest -= kBlockSize, bytes += kBlockSize) addBlock(ctx, bytes);
    std::memcpy(ctx.block, bytes, rest);
}

// One byte 0x80, zeros up to the place of the length, and the length in bits, low byte first.
void pad(md5ctx& ctx) {
    uint64_t bits = ctx.count * 8;
    char padding[kBlockSize + kLengthSize] = {'\x80'};
    const size_t gap = (2 * kBlockSize - kLengthSize - ctx.count % kBlockSize - 1) % kBlockSize + 1;
    for (size_t i = 0; i < kLengthSize; ++i, bits >>= 8) {
        padding[gap + i] = static_cast<char>(bits & 0xFF);
    }
    hash_update(padding, gap + kLengthSize, ctx);
}

}  // namespace

void Md5::add(const void* data, size_t size) {
    hash_update(static_cast<const char*>(data), size, mContext);
}

std::string Md5::text() const {
    md5ctx ctx = mContext;
    pad(ctx);
    // The digest is the words' bytes, low byte first.
    uint8_t digest[16];
    for (size_t i = 0; i < 4; ++i) little_endian::store(digest + 4 * i, ctx.state[i]);
    return Buffer(digest, sizeof digest).toHexString();
}

std::string md5sum(const void* data, int len) {
    Md5 md5;
    md5.add(data, static_cast<size_t>(std::max(len, 0)));
    return md5.text();
}

}  // namespace vyn::helper
