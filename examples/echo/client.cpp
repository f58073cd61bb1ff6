#include "client.h"

#include <vyn/socket.h>

#include <cstdlib>
#include <iostream>

#include "frame.h"

namespace {

constexpr int kPatienceMs = 5000;

bool receive(vyn::Socket& socket, std::string& out, size_t size) {
    out.resize(size);
    for (size_t received = 0; received < size;) {
        const int count =
            socket.recv(&out[received], static_cast<int>(size - received), kPatienceMs);
        if (count < 1) return false;
        received += static_cast<size_t>(count);
    }
    return true;
}

bool exchange(vyn::Socket& socket, const std::string& text, std::string& answer) {
    const std::string frame = encodeFrame(text);
    std::string length;
    return socket.send(frame.data(), static_cast<int>(frame.size())) > 0 &&
           receive(socket, length, kLengthBytes) && receive(socket, answer, payloadLength(length));
}

}  // namespace

int runClient(int count, char** arguments) {
    if (count < 1) {
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
            std::cerr << "no answer: " << socket.lastErrorMessage() << std::endl;
            return 1;
        }
        std::cout << "sent \"" << arguments[i] << "\", got \"" << answer << "\"" << std::endl;
    }
    return 0;
}
