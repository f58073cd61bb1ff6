#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

namespace vyn::testing {

// Distances between fields are those of the device only where words are as wide as there.
// Everywhere else the order of the fields must do.
constexpr bool kHasWordsOfTheDevice = sizeof(void*) == 4 && sizeof(long) == 4;

using Offsets = std::vector<std::ptrdiff_t>;

// A pointer to a data member is its distance from the start of the record.
template <typename Field>
std::ptrdiff_t offsetOf(Field field) {
    std::ptrdiff_t offset;
    static_assert(sizeof field == sizeof offset);
    std::memcpy(&offset, &field, sizeof offset);
    return offset;
}

// Reaches private fields too: what an explicit instantiation is given is not checked for access.
template <typename Record, auto... Fields>
struct ExposeFields {
    friend Offsets offsetsOf(Record) { return {offsetOf(Fields)...}; }
};

}  // namespace vyn::testing

// Makes offsetsOf(RECORD()) give the offsets of these fields, in this order. To be used in the
// namespace vyn::testing.
#define VYN_EXPOSE_FIELDS(record, ...) \
    struct record {};                  \
    Offsets offsetsOf(record);         \
    template struct ExposeFields<record, __VA_ARGS__>
