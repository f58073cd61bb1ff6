// SPDX-License-Identifier: Apache-2.0

#include <vyn/buffer.h>

#include <algorithm>
#include <cstring>

namespace vyn {

int Buffer::str_length() { return static_cast<const Buffer*>(this)->str_length(); }

int Buffer::str_length() const {
    if (data == nullptr) return 0;
    return static_cast<int>(strnlen(data, static_cast<size_t>(heldBytes())));
}

std::string Buffer::std_string() {
    const int held = heldBytes();
    if (held == 0 || data[held - 1] != '\0') append("");
    return data;
}

std::string Buffer::std_string() const {
    return std::string(bytes().substr(0, static_cast<size_t>(str_length())));
}

std::string_view Buffer::bytes() const noexcept { return {data, static_cast<size_t>(heldBytes())}; }

bool Buffer::operator==(const std::string& text) const {
    const size_t length = text.length();
    return static_cast<size_t>(heldBytes()) == length + 1 && data[length] == '\0' &&
           std::strcmp(data, text.c_str()) == 0;
}

int Buffer::find_first_of(const std::string& chars, int start) const {
    const int held = heldBytes();
    for (int i = std::max(start, 0); i < held; ++i) {
        if (std::strchr(chars.c_str(), data[i]) != nullptr) return i;
    }
    return -1;
}

}  // namespace vyn
