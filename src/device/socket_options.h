// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn::io {

// Gives `to`, a new socket, the mode and the options that were set on `from`: those that Socket
// names. False, with errno, when one of them is refused.
[[nodiscard]] bool copySettings(int from, int to);

}  // namespace vyn::io
