// Any bytes come back from their hex text, and any text is read as scanf reads it.

#include <vyn/buffer.h>
#include <vyn/logging.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace vyn {
namespace {

// scanf measures the text anew for each pair.
constexpr size_t kLongestText = 512;

bool equal(const Buffer& buffer, const char* bytes, size_t size) {
    return static_cast<size_t>(buffer.size) == size &&
           (size == 0 || std::memcmp(buffer.data, bytes, size) == 0);
}

void checkRoundTrip(const char* bytes, size_t size) {
    const std::string hex = Buffer(bytes, static_cast<int>(size)).toHexString();
    VYN_CHECK(hex.length() == 2 * size);
    VYN_CHECK(hex.find_first_not_of("0123456789ABCDEF") == std::string::npos);
    Buffer back;
    back.fromHexString(hex);
    VYN_CHECK(equal(back, bytes, size));
}

void checkReading(const std::string& text) {
    std::string expected;
    for (size_t i = 0; i + 1 < text.length(); i += 2) {
        unsigned value = 0;
        std::sscanf(text.c_str() + i, "%02X", &value);
        expected += static_cast<char>(value);
    }
    Buffer read;
    read.fromHexString(text);
    VYN_CHECK(equal(read, expected.data(), expected.size())) << "in " << text;
}

}  // namespace
}  // namespace vyn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* bytes = reinterpret_cast<const char*>(data);
    vyn::checkRoundTrip(bytes, size);
    vyn::checkReading(std::string(bytes, std::min(size, vyn::kLongestText)));
    return 0;
}
