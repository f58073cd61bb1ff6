// SPDX-License-Identifier: Apache-2.0

// Something that is done again and again, and an end with everything sent: at SIGTERM, which this
// program sends itself, the loop goes on until its peers have what was written for them. Prints:
//
//     report 1
//     report 2
//     report 3
//     stop, with ... bytes to be sent
//     the peer has got all 4000000 bytes
#include <sys/socket.h>
#include <unistd.h>
#include <vyn/config.h>
#include <vyn/handler.h>
#include <vyn/signal_device.h>
#include <vyn/unix_device.h>

#include <csignal>
#include <cstdint>
#include <iostream>
#include <string>
#include <thread>

constexpr int kPeriodMs = 20;
constexpr int kLastWordsMs = 5000;
constexpr int kReportSize = 1000000;

class Reports : public vyn::Handler {
  public:
    Reports(vyn::Connector& loop, const vyn::UnixSocket& peer)
        : Handler(loop), mSignals({SIGTERM}, [this](const auto&) { stop(); }), mPeer(&peer) {
        for (vyn::Worker* each : {&mStopping, &mReporting}) mLoop.addWorkerLocked(each, this);
        mTimer = mLoop.every(kPeriodMs, [this] { onPeriod(); });
    }
    ~Reports() override {
        mLoop.cancel(mTimer);
        for (vyn::Worker* each : {&mStopping, &mReporting}) mLoop.removeWorkerLocked(each);
    }

  private:
    void onPeriod() {
        std::cout << "report " << ++mCount << std::endl;
        report();
        if (mCount < 3) return;
        mLoop.cancel(mTimer);
        kill(getpid(), SIGTERM);
    }
    void report() {
        const std::string text(kReportSize, 'x');
        mReporting.writeRaw(text.data(), kReportSize);
    }
    // Nothing that waits is lost, unless the peer takes longer than this.
    void stop() {
        report();
        std::cout << "stop, with " << mReporting.pendingBytes() << " bytes to be sent" << std::endl;
        mLoop.requestStop(kLastWordsMs);
    }

    int mCount = 0;
    uint64_t mTimer = 0;
    vyn::SignalDevice mSignals;
    vyn::Worker mStopping{&mSignals, nullptr};
    vyn::UnixDevice mPeer;
    vyn::Worker mReporting{&mPeer, nullptr};
};

// Counts what it gets until the other end is closed.
int countBytes(vyn::UnixSocket socket) {
    std::string buffer(65536, '\0');
    int all = 0;
    for (int count; (count = socket.recv(&buffer[0], 65536, kLastWordsMs)) > 0;) all += count;
    return all;
}

int main() {
    vyn::config::setAsyncWritting(true);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return 1;
    int received = 0;
    std::thread reader;
    {
        vyn::Connector loop;
        const auto peer = vyn::UnixSocket::fromDescriptor(ends[0]);
        Reports reports(loop, peer);  // before the thread, which is not to get the signal
        reader =
            std::thread([&] { received = countBytes(vyn::UnixSocket::fromDescriptor(ends[1])); });
        loop.run();
    }
    reader.join();
    std::cout << "the peer has got all " << received << " bytes" << std::endl;
    return received == 4 * kReportSize ? 0 : 1;
}
