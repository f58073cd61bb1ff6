// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

// The register behind helper::crc32(), before the length is added.
namespace vyn::checksum {

// Reflected: the highest power is bit 0.
constexpr uint32_t kPolynomial = 0xEDB88320;

// The register after more bytes, by the fastest means there are. `bytes` may be null when there are
// none.
uint32_t add(uint32_t crc, const uint8_t* bytes, size_t size);

// The same on any processor.
uint32_t addByTables(uint32_t crc, const uint8_t* bytes, size_t size);

}  // namespace vyn::checksum
