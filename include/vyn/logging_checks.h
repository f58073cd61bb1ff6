// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>

// What the VYN_CHECK_EQ family of logging.h, which includes this, is made of.
namespace logging::detail {

// Numbers are compared by their values, whatever their types.
template <typename Compare, typename A, typename B>
bool holds(const A& a, const B& b) {
    const Compare compare{};
    if constexpr (std::is_integral_v<A> && std::is_integral_v<B> &&
                  std::is_signed_v<A> != std::is_signed_v<B>) {
        if constexpr (std::is_signed_v<A>) {
            if (a < 0) return compare(-1, 0);
        } else {
            if (b < 0) return compare(0, -1);
        }
        return compare(static_cast<uintmax_t>(a), static_cast<uintmax_t>(b));
    } else {
        return compare(a, b);
    }
}

template <typename Value, typename = void>
struct IsStreamable : std::false_type {};
template <typename Value>
struct IsStreamable<
    Value, std::void_t<decltype(std::declval<std::ostream&>() << std::declval<const Value&>())>>
    : std::true_type {};

// Writes a value as a failed check shows it; "?" for one that can not be written.
template <typename Value>
void show(std::ostream& os, const Value& value) {
    if constexpr (std::is_null_pointer_v<Value>) {
        os << "nullptr";
    } else if constexpr (std::is_convertible_v<Value, const char*>) {
        const char* const text = value;
        os << (text == nullptr ? "nullptr" : text);
    } else if constexpr (std::is_same_v<Value, bool>) {
        os << (value ? "true" : "false");
    } else if constexpr (std::is_same_v<Value, signed char> ||
                         std::is_same_v<Value, unsigned char>) {
        os << static_cast<int>(value);
    } else if constexpr (IsStreamable<Value>::value) {
        os << value;
    } else if constexpr (std::is_enum_v<Value>) {
        show(os, static_cast<std::underlying_type_t<Value>>(value));
    } else {
        os << "?";
    }
}

// Both values, as in "(3 vs. 4) ", when the comparison does not hold.
template <typename Compare, typename A, typename B>
std::optional<std::string> mismatch(const A& a, const B& b) {
    if (holds<Compare>(a, b)) return std::nullopt;
    std::ostringstream os;
    os << "(";
    show(os, a);
    os << " vs. ";
    show(os, b);
    os << ") ";
    return os.str();
}

}  // namespace logging::detail
