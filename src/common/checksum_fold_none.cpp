// SPDX-License-Identifier: Apache-2.0

#include "common/checksum_fold.h"

namespace vyn::checksum {

size_t fold(uint32_t, const uint8_t*, size_t, uint8_t (&)[kFoldedSize]) { return 0; }

}  // namespace vyn::checksum
