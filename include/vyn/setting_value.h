// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

#include <vyn/export.h>

// Reads texts of settings as values, the way in which the library reads its own properties and an
// IniConfig its entries. An empty text gives the default. So does one that is of no use, with a
// warning that is written once for each such text:
//
//     property persist.vyn.auth_mode: "256" is of no use, taking "0".
//
// `place` and `key` lead the warning. Any thread.
namespace vyn::setting {

// A whole decimal number from `min` to `max`.
[[nodiscard]] VYN_API int64_t integer(const std::string& place, const std::string& key,
                                      const std::string& text, int64_t def, int64_t min,
                                      int64_t max);

// A decimal number from `min` to `max`, with a point and an exponent where they are needed,
// whatever the locale.
[[nodiscard]] VYN_API double number(const std::string& place, const std::string& key,
                                    const std::string& text, double def, double min, double max);

// "1", "y", "yes", "on" or "true", or "0", "n", "no", "off" or "false".
[[nodiscard]] VYN_API bool isOn(const std::string& place, const std::string& key,
                                const std::string& text, bool def);

// The absolute path of a folder, to which a "/" at the end is added where it is missing.
[[nodiscard]] VYN_API std::string folder(const std::string& place, const std::string& key,
                                         const std::string& text, const std::string& def);

}  // namespace vyn::setting
