// SPDX-License-Identifier: Apache-2.0

#include "common/number_text.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <locale>
#include <sstream>

namespace vyn::number_text {

namespace {

using Limits = std::numeric_limits<double>;

template <size_t N>
bool contains(const char* const (&words)[N], const std::string& word) {
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

std::string withDigits(double number, int digits) {
    std::ostringstream stream;
    stream.exceptions(std::ios::badbit);  // throws where memory runs out
    stream.imbue(std::locale::classic());
    stream.precision(digits);
    stream << number;
    return stream.str();
}

}  // namespace

std::string of(double number) {
    if (number != number) return "nan";
    std::string text;
    for (int digits = Limits::digits10; digits <= Limits::max_digits10; ++digits) {
        text = withDigits(number, digits);
        bool isWhole = false;
        if (read(text, isWhole) == number) break;
    }
    return text;
}

std::optional<double> read(const std::string& text, bool& isWhole) {
    isWhole = true;
    if (text == "inf") return Limits::infinity();
    if (text == "-inf") return -Limits::infinity();
    if (text == "nan") return Limits::quiet_NaN();
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    double number = 0;
    isWhole = false;
    if (!(stream >> number)) return std::nullopt;
    isWhole = stream.peek() == std::istringstream::traits_type::eof();
    return number;
}

// The words are those that a device's own reader of switches knows.
std::optional<bool> readSwitch(const std::string& text) {
    static constexpr const char* kOn[] = {"1", "y", "yes", "on", "true"};
    static constexpr const char* kOff[] = {"0", "n", "no", "off", "false"};
    if (contains(kOn, text)) return true;
    if (contains(kOff, text)) return false;
    return std::nullopt;
}

}  // namespace vyn::number_text
