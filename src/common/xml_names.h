// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn::xml_names {

// What ends a name for the parser. It is generous: a quote or, in an element's name, a '<' is part.
inline constexpr char kEndsOfElement[] = " \t\n\r/>?";
inline constexpr char kEndsOfAttribute[] = " \t\n\r/<>=?!";

// Whether a name is read again as it is written, where this list of characters ends it. Else a line
// says that it is not written.
[[nodiscard]] bool isReadable(const char* name, const char* ends);

}  // namespace vyn::xml_names
