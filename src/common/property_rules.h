// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

// What the property service of a device takes.
namespace vyn::property_rules {

// Letters, digits and ".-@:_", with no dot in front, at the end or beside another.
[[nodiscard]] bool isName(const std::string& key);

// UTF-8 without a NUL.
[[nodiscard]] bool isText(const std::string& value);

// Only the values of keys that are written once may be longer than Property::kMaxValueLength.
[[nodiscard]] bool isReadOnly(const std::string& key);

}  // namespace vyn::property_rules
