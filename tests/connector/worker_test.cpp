// SPDX-License-Identifier: Apache-2.0

#include <vyn/authenticator.h>

#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;

struct WorkerTest : ::testing::Test {
    FakeDevice device;
    LineParser parser;
    RecordingExecutor executor;
    Worker worker{&device, &parser};
    Strings events;
    LogCapture log;
    FatalCapture fatal;

    WorkerTest() {
        worker.attach(nullptr, &executor);
        executor.command = [this](Worker*, Command* command) {
            events.push_back(static_cast<Line*>(command)->text);
        };
        executor.disconnected = [this](Worker*) { events.push_back("disconnected"); };
        executor.authenticated = [this](Worker*) { events.push_back("authenticated"); };
        executor.authenticationFailed = [this](Worker*) { events.push_back("refused"); };
        executor.heartbitTimeout = [this](Worker*) { events.push_back("timeout"); };
    }
    ~WorkerTest() override { config::setAsyncWritting(false); }

    void receive(const std::string& bytes) {
        worker.onData(bytes.data(), static_cast<int>(bytes.size()));
    }
    void write(const std::string& text) {
        Line line(text);
        worker.write(&line);
    }
    void queue(const std::string& bytes) {
        worker.queueWritting(bytes.data(), static_cast<int>(bytes.size()));
    }
};

TEST_F(WorkerTest, LetsNothingPastAnAuthenticatorThatDoesNotPass) {
    struct PasswordAuthenticator : Authenticator {
        std::string heard;
        bool required = false;
        bool pass() override { return heard == "secret"; }
        void require() override { required = true; }
        void onData(const void* data, int len) override {
            heard.append(static_cast<const char*>(data), static_cast<size_t>(len));
            pass() ? worker()->onAuthenticated() : worker()->onAuthenticationFailed();
        }
    } authenticator;
    worker.attach(&authenticator);
    worker.requireAuth();
    receive("sec");
    EXPECT_TRUE(authenticator.required && !worker.hasAuthenticated());
    write("too early");
    EXPECT_EQ(log.texts(), Strings{"not authenticated"});
    receive("ret");
    receive("hello\n");
    write("welcome");
    EXPECT_EQ(events, (Strings{"refused", "authenticated", "hello"}));
    EXPECT_EQ(device.written, "welcome\n");
}

TEST_F(WorkerTest, DoesNothingWhileItIsNotValidButReportEveryDisconnection) {
    worker.onDisconnected();
    worker.onDisconnected();
    receive("one\n");
    Line line("x");
    EXPECT_FALSE(worker.write(&line) || worker.writeRaw("x", 1) || worker.queueWritting("x", 1) ||
                 worker.performWrite());
    worker.onPacketCreated("x", 1);
    worker.onNewConnection(3, nullptr);
    worker.onNetworkChanged();
    worker.onFileChanged("", 0);
    worker.checkHeartbit();
    worker.onAuthenticated();
    worker.onAuthenticationFailed();
    EXPECT_EQ(log.count("not valid"), 12);
    EXPECT_EQ(events, (Strings{"disconnected", "disconnected"}));
    EXPECT_EQ(device.writes, 0);
    worker.enable();
    receive("one\n");
    EXPECT_EQ(events.back(), "one");
}

TEST_F(WorkerTest, QueuesOnlyAsynchronousWritesAndResumesThemWhereTheyStopped) {
    device.accepts = 2;
    errno = EAGAIN;
    EXPECT_FALSE(worker.writeRaw("abcd", 4));
    EXPECT_EQ(log.texts(),
              Strings{"[11] Resource temporarily unavailable. ret < len. 2 bytes written."});
    EXPECT_FALSE(worker.hasWrittingData());
    config::setAsyncWritting(true);
    EXPECT_TRUE(worker.writeRaw("efg", 3));
    worker.writeRaw("", 0);
    write("hi");
    for (const int accepts : {2, -1}) {
        device.accepts = accepts;
        EXPECT_FALSE(worker.performWrite());
        EXPECT_EQ(device.written, "abef");
        EXPECT_EQ(worker.pendingBytes(), 4u);
    }
    worker.setMaxPendingBytes(5);
    queue("!");
    device.accepts = 3;
    EXPECT_TRUE(worker.performWrite());
    EXPECT_FALSE(worker.hasWrittingData());
    EXPECT_EQ(device.written, "abefghi\n!");
    queue("12345");
    EXPECT_TRUE(worker.isValid());
    queue("6");
    EXPECT_EQ(worker.disconnectReason(), DisconnectReason::kOverflow);
    EXPECT_EQ(log.count("client blocks 2 writting requests, disconnect it."), 1);
}

TEST_F(WorkerTest, MayBeDeletedInsideACommandAndWhenItIsDisconnected) {
    struct FragileWorker : Worker {
        using Worker::Worker;
        void sendHeartbit(long) override { onDisconnected(); }
        bool hasRemoteTimedout(long) override { return true; }
    };
    const auto note = std::exchange(executor.command, [](Worker* gone, Command*) { delete gone; });
    executor.disconnected = [](Worker* gone) { delete gone; };
    const auto make = [this] {
        auto* doomed = new FragileWorker(&device, &parser);
        doomed->attach(nullptr, &executor);
        return doomed;
    };
    make()->checkHeartbit();
    Worker* const overflowing = make();
    for (int i = 0; i < 100; ++i) overflowing->queueWritting("x", 1);
    EXPECT_TRUE(overflowing->isValid());
    overflowing->queueWritting("x", 1);
    EXPECT_EQ(log.count("Alert! \033[mclient blocks 101 writting requests, disconnect it. Worker("),
              1);
    make()->onData("one\ntwo\nthree\n", 14);
    EXPECT_TRUE(events.empty());
    // What was left in the parser's buffer goes to its next listener.
    executor.command = note;
    receive("four\n");
    EXPECT_EQ(events, (Strings{"two", "three", "four"}));
    EXPECT_TRUE(fatal.lines().empty());
}

TEST_F(WorkerTest, JudgesItsHeartbeatByTheLastReadThatWasNotPausedAndTheLastWrite) {
    struct HeartbeatWorker : Worker {
        using Worker::Worker;
        std::vector<long> times;
        void sendHeartbit(long sinceLastWrite) override { times = {sinceLastWrite}; }
        bool hasRemoteTimedout(long sinceLastRead) override {
            times.insert(times.end(), {sinceLastRead, sinceLastSent()});
            return sinceLastRead >= 5000;
        }
    } beating(&device, &parser);
    beating.attach(nullptr, &executor);
    // The tick wraps in the middle of what happens here.
    ManualClock clock(kLastPositiveTick - 2000);
    // What a heartbeat sees then: since the last command, the last read and the last byte sent.
    const auto after = [&](int ms) {
        clock.advance(ms);
        beating.checkHeartbit();
        return beating.times;
    };
    beating.onData("x", 1);
    clock.advance(4000);
    Line ping("ping");
    beating.write(&ping);
    clock.advance(999);
    beating.writeRaw("raw", 3);
    EXPECT_EQ(after(0), (std::vector<long>{999, 4999, 0}));
    beating.pauseReading();
    EXPECT_EQ(after(5000), (std::vector<long>{5999, 4999, 5000}));
    beating.resumeReading();
    EXPECT_EQ(events, Strings{});
    EXPECT_EQ(after(1), (std::vector<long>{6000, 5000, 5001}));
    EXPECT_EQ(events, Strings{"timeout"});
}

}  // namespace
}  // namespace vyn
