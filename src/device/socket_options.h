#pragma once

namespace vyn::io {

// Gives `to`, a new socket, the mode and the options that were set on `from`.
void copySettings(int from, int to);

}  // namespace vyn::io
