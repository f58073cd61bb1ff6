// SPDX-License-Identifier: Apache-2.0

#include <immintrin.h>

#include "common/checksum.h"
#include "common/checksum_fold.h"

// Folding, after Gopal et al., "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ
// Instruction" (Intel, 2009): 16 bytes that lie n bits in front of others weigh x^n times as much,
// so multiplied by x^n modulo the polynomial they may be added to those others, and the input is
// that much shorter.
#define VYN_USES_CARRYLESS_MULTIPLICATION __attribute__((target("pclmul,sse2")))

namespace vyn::checksum {

namespace {

constexpr size_t kLanes = 4;
constexpr size_t kStep = kLanes * kFoldedSize;

// x^exponent modulo the polynomial. Reflected like the register, and shifted by one, since the
// product of two reflected numbers is.
constexpr long long power(int exponent) {
    uint32_t value = 0x80000000;
    for (; exponent > 0; --exponent) value = (value >> 1) ^ ((value & 1) * kPolynomial);
    return static_cast<long long>(value) << 1;
}

// What the two halves of 16 bytes are multiplied by to move them a distance ahead. The front half
// stands 64 bits further off, and a factor of 32 bits gives products that end 32 bits late.
template <int Bits>
VYN_USES_CARRYLESS_MULTIPLICATION __m128i factors() {
    constexpr long long kFront = power(Bits + 32);
    constexpr long long kBack = power(Bits - 32);
    return _mm_set_epi64x(kBack, kFront);
}

VYN_USES_CARRYLESS_MULTIPLICATION
__m128i load(const uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

VYN_USES_CARRYLESS_MULTIPLICATION
__m128i ahead(__m128i bytes, __m128i factors) {
    return _mm_xor_si128(_mm_clmulepi64_si128(bytes, factors, 0x00),
                         _mm_clmulepi64_si128(bytes, factors, 0x11));
}

// The input has at least one step.
VYN_USES_CARRYLESS_MULTIPLICATION
__m128i foldSteps(uint32_t crc, const uint8_t* bytes, size_t steps) {
    __m128i lanes[kLanes];
    for (size_t i = 0; i < kLanes; ++i) lanes[i] = load(bytes + i * kFoldedSize);
    lanes[0] = _mm_xor_si128(lanes[0], _mm_cvtsi32_si128(static_cast<int>(crc)));

    const __m128i stepAhead = factors<8 * kStep>();
    for (; steps > 1; --steps) {
        bytes += kStep;
        for (size_t i = 0; i < kLanes; ++i) {
            lanes[i] = _mm_xor_si128(ahead(lanes[i], stepAhead), load(bytes + i * kFoldedSize));
        }
    }
    const __m128i laneAhead = factors<8 * kFoldedSize>();
    __m128i folded = lanes[0];
    for (size_t i = 1; i < kLanes; ++i) folded = _mm_xor_si128(ahead(folded, laneAhead), lanes[i]);
    return folded;
}

}  // namespace

size_t fold(uint32_t crc, const uint8_t* bytes, size_t size, uint8_t (&folded)[kFoldedSize]) {
    const size_t steps = size / kStep;
    if (steps == 0 || !__builtin_cpu_supports("pclmul")) return 0;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(folded), foldSteps(crc, bytes, steps));
    return steps * kStep;
}

}  // namespace vyn::checksum
