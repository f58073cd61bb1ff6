// SPDX-License-Identifier: Apache-2.0

#include "client.h"

#include <vyn/socket.h>

#include <cstdlib>
#include <iostream>

#include "frame.h"

namespace {

constexpr int kPatienceMs = 5000;

// Exactly `size` bytes, or fewer when the service hung up or kept silent.
std::string receive(vyn::Socket& socket, size_t size) {
    std::string bytes(size, '\0');
    size_t received = 0;
    while (received < size) {
        const int wanted = static_cast<int>(size - received);
        const int count = socket.recv(&bytes[received], wanted, kPatienceMs);
        if (count < 1) break;
        received += static_cast<size_t>(count);
    }
    bytes.resize(received);
    return bytes;
}

bool exchange(vyn::Socket& socket, const std::string& text, std::string& answer) {
    const std::string frame = encodeFrame(text);
    if (socket.send(frame.data(), static_cast<int>(frame.size())) < 0) return false;
    const std::string length = receive(socket, kLengthBytes);
    if (length.size() < kLengthBytes || payloadLength(length) > kLongestPayload) return false;
    answer = receive(socket, payloadLength(length));
    return answer.size() == payloadLength(length);
}

}  // namespace

int runClient(int count, char** arguments) {
    if (count < 2) {
        std::cerr << "usage: echo client PORT TEXT..." << std::endl;
        return 2;
    }
    vyn::Socket socket;
    if (!socket.create(vyn::Socket::TCP) || !socket.connect("127.0.0.1", std::atoi(arguments[0]))) {
        std::cerr << "can not connect: " << socket.lastErrorMessage() << std::endl;
        return 1;
    }
    for (int i = 1; i < count; ++i) {
        std::string answer;
        if (!exchange(socket, arguments[i], answer)) {
            std::cerr << "no answer to \"" << arguments[i] << "\"" << std::endl;
            return 1;
        }
        std::cout << "sent \"" << arguments[i] << "\", got \"" << answer << "\"" << std::endl;
    }
    return 0;
}
