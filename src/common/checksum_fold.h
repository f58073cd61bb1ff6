// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

// Long inputs, where the processor multiplies polynomials itself; one source file for each kind of
// processor.
namespace vyn::checksum {

constexpr size_t kFoldedSize = 16;

// Shortens an input from the front: `folded`, added to a register of 0, leaves the register that
// the bytes taken here leave when they are added to `crc`. Returns how many bytes were taken, which
// is 0 when the processor can not do it or the input is too short to gain by it.
[[nodiscard]] size_t fold(uint32_t crc, const uint8_t* bytes, size_t size,
                          uint8_t (&folded)[kFoldedSize]);

}  // namespace vyn::checksum
