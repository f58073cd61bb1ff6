// SPDX-License-Identifier: Apache-2.0

#include <vyn/helper.h>

#include <algorithm>

namespace vyn::helper {

namespace {

// `text` may be one of the pieces that `out` had.
template <typename Container>
int splitLines(const std::string& text, Container& out, char delimiter) {
    Container pieces;
    size_t start = 0;
    while (start < text.length()) {
        const size_t end = std::min(text.find(delimiter, start), text.length());
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    out.swap(pieces);
    return static_cast<int>(out.size());
}

}  // namespace

std::string trim(const std::string& text, const char* chars) {
    const size_t first = text.find_first_not_of(chars);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(chars) - first + 1);
}

int split(const std::string& text, std::list<std::string>& out, char delimiter) {
    return splitLines(text, out, delimiter);
}

int split(const std::string& text, std::vector<std::string>& out, char delimiter) {
    return splitLines(text, out, delimiter);
}

std::vector<std::string> split(const std::string& text, char delimiter) {
    std::vector<std::string> pieces;
    size_t start = 0;
    size_t end;
    while ((end = text.find(delimiter, start)) != std::string::npos) {
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

std::string intToString(int value) { return std::to_string(value); }

bool startsWith(const std::string& text, const std::string& prefix) {
    return !prefix.empty() && text.compare(0, prefix.length(), prefix) == 0;
}

std::string implode(std::vector<std::string> items, const char* separator) {
    std::string joined;
    for (const std::string& item : items) {
        if (&item != &items.front()) joined += separator;
        joined += item;
    }
    return joined;
}

std::vector<std::string> l2v(const std::list<std::string>& items) {
    return {items.begin(), items.end()};
}

std::list<std::string> v2l(const std::vector<std::string>& items) {
    return {items.begin(), items.end()};
}

std::string dumplist(const std::list<std::string>& items, char separator) {
    std::string text(1, separator);
    for (const std::string& item : items) {
        text += item;
        text += separator;
    }
    return text;
}

}  // namespace vyn::helper
