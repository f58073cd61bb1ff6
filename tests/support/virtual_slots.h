#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <vector>

namespace vyn::testing {

// A destructor takes the first two slots of a vtable, one for each of its forms.
constexpr std::ptrdiff_t kFirstAfterDestructor = 2;

// A pointer to a member function. Of a virtual one the first word is its distance in the vtable.
// The C++ ABI of most processors marks it by 1 added to that word; the one of ARM, where addresses
// of functions may be odd, by the lowest bit of the second word.
using FunctionWords = std::array<std::ptrdiff_t, 2>;

template <typename Function>
FunctionWords wordsOf(Function function) {
    FunctionWords words;
    static_assert(sizeof function == sizeof words);
    std::memcpy(words.data(), &function, sizeof words);
    return words;
}

inline bool isMarkedInTheSecondWord() {
    struct Probe {
        virtual ~Probe() = default;
        virtual void function() {}
    };
    return (wordsOf(&Probe::function)[1] & 1) != 0;
}

// The vtable slot of a virtual function, or -1 for one that is not virtual.
template <typename Function>
std::ptrdiff_t slotOf(Function function) {
    const FunctionWords words = wordsOf(function);
    const bool inSecond = isMarkedInTheSecondWord();
    if ((words[inSecond ? 1 : 0] & 1) == 0) return -1;
    const std::ptrdiff_t distance = inSecond ? words[0] : words[0] - 1;
    return distance / static_cast<std::ptrdiff_t>(sizeof(void*));
}

template <typename... Functions>
std::vector<std::ptrdiff_t> slotsOf(Functions... functions) {
    return {slotOf(functions)...};
}

// `count` slots that follow each other.
inline std::vector<std::ptrdiff_t> slotsFrom(std::ptrdiff_t first, std::size_t count) {
    std::vector<std::ptrdiff_t> slots;
    for (std::size_t i = 0; i < count; ++i) slots.push_back(first + static_cast<std::ptrdiff_t>(i));
    return slots;
}

}  // namespace vyn::testing
