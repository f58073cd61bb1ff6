// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn::xml_depth {

// True when rapidxml, told to parse the NUL-terminated `text` with its default flags, would nest
// elements deeper than `levels`. Walks the text once in the parser's own steps, but without calling
// itself; text that the parser will refuse anyway is walked up to that place.
[[nodiscard]] bool exceeds(const char* text, int levels);

}  // namespace vyn::xml_depth
