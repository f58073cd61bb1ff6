// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>

// Numbers with a point in texts, the same in every locale.
namespace vyn::number_text {

// The shortest text that is read as the same number: "0.1", "1e+300", "inf", "-inf", "nan".
[[nodiscard]] std::string of(double number);

// The number at the beginning of a text, blanks in front of it left out. None when there is none,
// or only one beyond the range of double. `isWhole` tells whether it is all of the text.
[[nodiscard]] std::optional<double> read(const std::string& text, bool& isWhole);

// The words for switches; none for other texts.
[[nodiscard]] std::optional<bool> readSwitch(const std::string& text);

}  // namespace vyn::number_text
