// SPDX-License-Identifier: Apache-2.0

#include <openssl/crypto.h>
#include <vyn/buffer.h>

#include "codec/codec.h"
#include "support/repeat.h"

namespace bench {

namespace {

constexpr size_t kSize = 4096;
constexpr char kDigits[] = "0123456789ABCDEF";

std::string hexNoise() {
    std::string text;
    for (const char byte : noise(2 * kSize)) text += kDigits[byte & 15];
    return text;
}

double encodeOurs() {
    const std::string bytes = noise(kSize);
    const vyn::Buffer buffer(bytes.data(), static_cast<int>(bytes.size()));
    return nanosecondsFor([&buffer] { keep(buffer.toHexString()); });
}

double encodeOpenssl() {
    const std::string bytes = noise(kSize);
    std::string text(2 * kSize + 1, '\0');
    return nanosecondsFor([&] {
        size_t length = 0;
        OPENSSL_buf2hexstr_ex(text.data(), text.size(), &length,
                              reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                              '\0');
        keep(text[0]);
    });
}

// The least that can be done byte by byte: two digits looked up and stored in memory at hand.
double encodeLoop() {
    const std::string bytes = noise(kSize);
    std::string text(2 * kSize, '\0');
    return nanosecondsFor([&] {
        char* to = text.data();
        for (const char byte : bytes) {
            *to++ = kDigits[static_cast<unsigned char>(byte) >> 4];
            *to++ = kDigits[byte & 15];
        }
        keep(text[0]);
    });
}

double decodeOurs() {
    const std::string text = hexNoise();
    vyn::Buffer buffer;
    return nanosecondsFor([&] {
        buffer.fromHexString(text);
        keep(buffer.data);
    });
}

double decodeOpenssl() {
    const std::string text = hexNoise();
    std::string bytes(kSize, '\0');
    return nanosecondsFor([&] {
        size_t length = 0;
        OPENSSL_hexstr2buf_ex(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), &length,
                              text.c_str(), '\0');
        keep(bytes[0]);
    });
}

// The least that can be done: each digit is looked up, and taken for one.
double decodeLoop() {
    const std::string text = hexNoise();
    std::string bytes(kSize, '\0');
    unsigned char values[256] = {};
    for (unsigned char i = 0; i < 16; ++i) values[static_cast<unsigned char>(kDigits[i])] = i;
    return nanosecondsFor([&] {
        for (size_t i = 0; i < kSize; ++i) {
            const unsigned high = values[static_cast<unsigned char>(text[2 * i])];
            bytes[i] =
                static_cast<char>(high << 4 | values[static_cast<unsigned char>(text[2 * i + 1])]);
        }
        keep(bytes[0]);
    });
}

}  // namespace

std::vector<Contest> hexContests() {
    return {timed("hex-encode", "ours", encodeOurs),
            timed("hex-encode", "openssl", encodeOpenssl),
            timed("hex-encode", "loop", encodeLoop),
            timed("hex-decode", "ours", decodeOurs),
            timed("hex-decode", "openssl", decodeOpenssl),
            timed("hex-decode", "loop", decodeLoop)};
}

}  // namespace bench
