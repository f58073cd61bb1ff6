// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <string>

// A frame is the length of its payload in 4 bytes, most significant first, and the payload.
constexpr size_t kLengthBytes = sizeof(uint32_t);
constexpr size_t kLongestPayload = 64 * 1024;

inline std::string encodeFrame(const std::string& payload) {
    const uint32_t length = htonl(static_cast<uint32_t>(payload.size()));
    return std::string(reinterpret_cast<const char*>(&length), kLengthBytes) + payload;
}

// The length that leads `bytes`, of which there are at least kLengthBytes.
inline size_t payloadLength(const std::string& bytes) {
    uint32_t length;
    std::memcpy(&length, bytes.data(), kLengthBytes);
    return ntohl(length);
}
