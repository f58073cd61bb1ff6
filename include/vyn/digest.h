// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <vyn/export.h>

// Checksum and digest of data that comes piece by piece. All pieces together give what the
// functions of helper.h give for the whole. Not synchronised: one thread at a time; copies go on by
// themselves.
namespace vyn::helper {

// As crc32(), which also tells what it computes.
class VYN_API Crc32 {
  public:
    // `data` may be null when `size` is 0.
    void add(const void* data, size_t size);
    // That of the pieces so far; more may be added afterwards.
    [[nodiscard]] uint32_t value() const;

  private:
    uint32_t mRegister = 0xFFFFFFFF;
    uint64_t mSize = 0;
};

// The state of MD5 between two pieces of input. The fifth chaining word belongs to digests of five
// words and stays as it is here.
struct md5ctx {
    // The chaining words.
    uint32_t state[5] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
    uint64_t count = 0;      // bytes added so far
    uint8_t block[64] = {};  // the last count % 64 of them
};

// As md5sum(): RFC 1321.
class VYN_API Md5 {
  public:
    // `data` may be null when `size` is 0.
    void add(const void* data, size_t size);
    // The digest of the pieces so far in 32 upper-case digits; more may be added afterwards.
    [[nodiscard]] std::string text() const;

  private:
    md5ctx mContext;
};

}  // namespace vyn::helper
