// Any bytes come back from their hex text, and any text is read as scanf reads it.

#include <vyn/buffer.h>
#include <vyn/logging.h>

#include <cstdio>
#include <string>

namespace {

// scanf measures the text anew for each pair.
constexpr size_t kLongestText = 512;

std::string decoded(const std::string& text) {
    vyn::Buffer buffer;
    buffer.fromHexString(text);
    return buffer.size == 0 ? "" : std::string(buffer.data, static_cast<size_t>(buffer.size));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(data, data + size);
    const std::string hex = vyn::Buffer(data, static_cast<int>(size)).toHexString();
    VYN_CHECK(hex.length() == 2 * size);
    VYN_CHECK(hex.find_first_not_of("0123456789ABCDEF") == std::string::npos);
    VYN_CHECK(decoded(hex) == bytes);

    const std::string text = bytes.substr(0, kLongestText);
    std::string expected;
    for (size_t i = 0; i + 1 < text.length(); i += 2) {
        unsigned value = 0;
        std::sscanf(text.c_str() + i, "%02X", &value);
        expected += static_cast<char>(value);
    }
    VYN_CHECK(decoded(text) == expected) << "in " << text;
    return 0;
}
