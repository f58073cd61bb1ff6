// SPDX-License-Identifier: Apache-2.0

// A service whose listening socket was opened by whoever started it, such as a device's init
// system: it needs no right to bind, and nobody is refused while it restarts. The number of the
// descriptor comes by the environment. Without one this program is the parent, too. Prints:
//
//     the parent binds port ...
//     the service serves port ...
//     answer: hello
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vyn/config.h>
#include <vyn/handler.h>
#include <vyn/net_device.h>
#include <vyn/worker.h>

#include <cstdlib>
#include <iostream>
#include <string>

constexpr char kVariable[] = "SERVICE_SOCKET";

struct Peer : vyn::Worker {
    explicit Peer(const vyn::Socket* socket) : Worker(new vyn::NetDevice(socket), nullptr) {}
    ~Peer() override { delete getDevice(); }
    bool handledBeforeParser(const void* data, int len) override { return writeRaw(data, len); }
};

// Sends back what it gets, and ends with its first peer.
struct Service : vyn::Handler {
    using Handler::Handler;
    void onNewConnection(vyn::Worker*, int, void* data) override {
        const auto* socket = static_cast<const vyn::Socket*>(data);
        if (socket->isValid()) mLoop.addWorkerLocked(new Peer(socket), this);
    }
    void onDisconnected(vyn::Worker* peer) override {
        mLoop.removeWorkerLocked(peer);
        delete peer;
        mLoop.stop();
    }
};

int serve(int descriptor) {
    vyn::config::setAsyncWritting(true);
    const vyn::Socket given = vyn::Socket::fromDescriptor(descriptor);
    if (!given.isValid()) {
        std::cout << "no socket: " << vyn::Socket::lastErrorMessage() << std::endl;
        return 1;
    }
    vyn::Connector loop;
    Service service(loop);
    vyn::ListenerDevice listener(&given);
    vyn::Worker listening(&listener, nullptr);
    loop.addWorkerLocked(&listening, &service);
    std::cout << "the service serves port " << listener.socket().getHostPort() << std::endl;
    loop.run();
    return 0;
}

// Starts this program again with the socket, and talks to it.
int beParent(const char* program) {
    vyn::Socket bound(vyn::Socket::TCP);
    if (!bound.setHostIP("127.0.0.1") || !bound.bind(0) || !bound.listen()) return 1;
    const int port = bound.getHostPort();
    std::cout << "the parent binds port " << port << std::endl;
    const int descriptor = bound.release();
    const pid_t child = fork();
    if (child == 0) {
        fcntl(descriptor, F_SETFD, 0);  // it is to stay open in the program that is executed
        setenv(kVariable, std::to_string(descriptor).c_str(), 1);
        execl("/proc/self/exe", program, nullptr);
        _exit(127);
    }
    close(descriptor);

    vyn::Socket client(vyn::Socket::TCP);
    char answer[6] = "";
    if (client.connect("127.0.0.1", port) && client.send("hello", 5) == 5)
        client.recv(answer, 5, 5000);
    std::cout << "answer: " << answer << std::endl;
    client.reset();
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0 && answer[4] == 'o' ? 0 : 1;
}

int main(int, char** argv) {
    const char* descriptor = std::getenv(kVariable);
    return descriptor != nullptr ? serve(std::atoi(descriptor)) : beParent(argv[0]);
}
