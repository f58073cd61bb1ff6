#include <gtest/gtest.h>
#include <vyn/authenticator.h>
#include <vyn/config.h>
#include <vyn/worker.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/fake_device.h"
#include "support/fatal_capture.h"
#include "support/line_protocol.h"
#include "support/log_capture.h"
#include "support/manual_clock.h"
#include "support/recording_executor.h"

namespace vyn {
namespace {

using testing::FakeDevice;
using testing::FatalCapture;
using testing::kLastPositiveTick;
using testing::Line;
using testing::LineParser;
using testing::LogCapture;
using testing::ManualClock;
using testing::RecordingExecutor;

// Lets the peer in once it has said "secret".
struct PasswordAuthenticator : Authenticator {
    std::string heard;
    bool required = false;

    bool pass() override { return heard == "secret"; }
    void require() override { required = true; }
    void onData(const void* data, int len) override {
        heard.append(static_cast<const char*>(data), static_cast<size_t>(len));
        if (pass()) {
            worker()->onAuthenticated();
        } else {
            worker()->onAuthenticationFailed();
        }
    }
};

struct WorkerTest : ::testing::Test {
    FakeDevice device;
    LineParser parser;
    RecordingExecutor executor;
    Worker worker{&device, &parser};
    std::vector<std::string> events;

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

TEST_F(WorkerTest, TurnsBytesIntoCommandsAndCommandsIntoBytes) {
    receive("one\ntw");
    receive("o\nthree\n");
    EXPECT_EQ(events, (std::vector<std::string>{"one", "two", "three"}));
    write("answer");
    EXPECT_EQ(device.written, "answer\n");
}

TEST_F(WorkerTest, LetsNothingPastAnAuthenticatorThatDoesNotPass) {
    LogCapture log;
    PasswordAuthenticator authenticator;
    worker.attach(&authenticator);
    worker.requireAuth();
    EXPECT_TRUE(authenticator.required);
    EXPECT_FALSE(worker.hasAuthenticated());

    receive("sec");
    write("too early");
    EXPECT_EQ(log.texts(), std::vector<std::string>{"not authenticated"});
    EXPECT_EQ(device.written, "");
    receive("ret");
    receive("hello\n");
    write("welcome");
    EXPECT_EQ(events, (std::vector<std::string>{"refused", "authenticated", "hello"}));
    EXPECT_EQ(device.written, "welcome\n");
}

TEST_F(WorkerTest, DoesNothingWhileItIsNotValidButReportEveryDisconnection) {
    LogCapture log;
    worker.onDisconnected();
    worker.onDisconnected();
    EXPECT_EQ(events, (std::vector<std::string>{"disconnected", "disconnected"}));
    EXPECT_FALSE(worker.isValid());

    receive("one\n");
    write("x");
    worker.writeRaw("x", 1);
    worker.queueWritting("x", 1);
    worker.onPacketCreated("x", 1);
    worker.onNewConnection(3, nullptr);
    worker.onNetworkChanged();
    worker.onFileChanged("", 0);
    worker.checkHeartbit();
    worker.onAuthenticated();
    EXPECT_FALSE(worker.performWrite());
    EXPECT_EQ(log.count("not valid"), 11);
    ASSERT_EQ(log.lines().size(), 11u);
    EXPECT_NE(log.lines()[0].find("(onData)]  not valid"), std::string::npos) << log.lines()[0];
    EXPECT_EQ(events.size(), 2u);
    EXPECT_EQ(device.writes, 0);

    worker.enable();
    receive("one\n");
    EXPECT_EQ(events.back(), "one");
}

TEST_F(WorkerTest, ChecksItsParserAndExecutor) {
    FatalCapture fatal;
    Worker bare;
    bare.onData("x", 1);
    Line line("x");
    bare.write(&line);
    bare.onCommandParsed(&line);
    bare.onNewConnection(1, nullptr);
    bare.onDisconnected();
    EXPECT_EQ(fatal.count("Check failed. (mParser != NULL)"), 2);
    EXPECT_EQ(fatal.count("Check failed. (mExecutor != NULL)"), 3);
    EXPECT_FALSE(bare.isValid());
}

TEST_F(WorkerTest, WithoutADeviceHasNoDescriptorAndCountsBytesAsWritten) {
    LogCapture log;
    Worker bare;
    EXPECT_TRUE(bare.isValid());
    EXPECT_EQ(bare.getFd(), -1);
    EXPECT_TRUE(bare.getFds().empty());
    EXPECT_EQ(bare.instantWrite("abc", 3), 3);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"mDevice is null"});
    EXPECT_FALSE(Worker(nullptr, nullptr).isValid());
}

TEST_F(WorkerTest, LogsAndDropsWhatADirectWriteDoesNotTake) {
    LogCapture log;
    device.accepts = 2;
    errno = EAGAIN;
    worker.writeRaw("abcd", 4);
    EXPECT_EQ(device.written, "ab");
    EXPECT_EQ(log.texts(),
              std::vector<std::string>{
                  "[11] Resource temporarily unavailable. ret < len. 2 bytes written."});
    EXPECT_FALSE(worker.hasWrittingData());
}

TEST_F(WorkerTest, QueuesWritesOnlyWhenAsynchronousWritingIsOn) {
    config::setAsyncWritting(true);
    worker.writeRaw("ab", 2);
    write("cd");
    EXPECT_EQ(device.writes, 0);
    EXPECT_TRUE(worker.hasWrittingData());
    EXPECT_TRUE(worker.performWrite());
    EXPECT_EQ(device.written, "abcd\n");
    EXPECT_FALSE(worker.hasWrittingData());
}

TEST_F(WorkerTest, NeverQueuesForACallerOnTheLoopItself) {
    LogCapture log;
    config::setAsyncWritting(true);
    worker.setSelfCallFlag(true);
    worker.writeRaw("abc", 3);
    EXPECT_EQ(device.written, "abc");
    EXPECT_EQ(log.texts(), std::vector<std::string>{"write len 3 ret len 3 for self call"});
}

TEST_F(WorkerTest, ResumesAPartialWriteWhereItStopped) {
    queue("abcde");
    queue("");
    queue("fgh");
    device.accepts = 3;
    EXPECT_FALSE(worker.performWrite());
    EXPECT_EQ(device.written, "abc");
    device.accepts = -1;
    EXPECT_FALSE(worker.performWrite());
    device.accepts = 3;
    EXPECT_TRUE(worker.performWrite());
    EXPECT_EQ(device.written, "abcdefgh");
    EXPECT_TRUE(worker.performWrite());
}

TEST_F(WorkerTest, The101stPendingWriteDisconnects) {
    LogCapture log;
    for (int i = 0; i < 100; ++i) queue("x");
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(events.empty());
    queue("x");
    EXPECT_EQ(events, std::vector<std::string>{"disconnected"});
    std::ostringstream printed;
    printed << worker;
    EXPECT_EQ(log.texts(), std::vector<std::string>{
                               "\033[1;31mAlert! \033[mclient blocks 101 writting requests, "
                               "disconnect it. " +
                               printed.str()});
}

TEST_F(WorkerTest, MayBeDeletedWhenItsQueueOverflows) {
    auto* doomed = new Worker(&device, &parser);
    doomed->attach(nullptr, &executor);
    executor.disconnected = [](Worker* gone) { delete gone; };
    for (int i = 0; i < 101; ++i) doomed->queueWritting("x", 1);
}

TEST_F(WorkerTest, MayBeDeletedInsideACommand) {
    auto* doomed = new Worker(&device, &parser);
    doomed->attach(nullptr, &executor);
    executor.command = [this](Worker* gone, Command* command) {
        events.push_back(static_cast<Line*>(command)->text);
        delete gone;
    };
    doomed->onData("one\ntwo\nthree\n", 14);
    EXPECT_EQ(events, std::vector<std::string>{"one"});
}

// Has one keep-alive for every 1000 ms without a write, and bears 5000 ms of silence.
class HeartbeatWorker : public Worker {
  public:
    using Worker::Worker;
    std::vector<long> sinceWrites;
    std::vector<long> sinceReads;

    void sendHeartbit(long sinceLastWrite) override {
        sinceWrites.push_back(sinceLastWrite);
        if (sinceLastWrite < 1000) return;
        Line ping("ping");
        write(&ping);
    }
    bool hasRemoteTimedout(long sinceLastRead) override {
        sinceReads.push_back(sinceLastRead);
        return sinceLastRead >= 5000;
    }
};

TEST_F(WorkerTest, JudgesItsHeartbeatByTheLastReadAndTheLastCommandWritten) {
    // The tick wraps in the middle of what happens here.
    ManualClock clock(kLastPositiveTick - 2000);
    HeartbeatWorker beating(&device, &parser);
    beating.attach(nullptr, &executor);
    Line first("first");
    beating.write(&first);

    clock.advance(999);
    beating.writeRaw("raw", 3);
    beating.checkHeartbit();
    EXPECT_EQ(device.written, "first\nraw");
    clock.advance(1);
    beating.checkHeartbit();
    EXPECT_EQ(device.written, "first\nrawping\n");
    clock.advance(3999);
    beating.checkHeartbit();
    EXPECT_EQ(events, std::vector<std::string>{});
    clock.advance(1);
    beating.checkHeartbit();
    EXPECT_EQ(events, std::vector<std::string>{"timeout"});
    EXPECT_EQ(beating.sinceReads, (std::vector<long>{999, 1000, 4999, 5000}));
    EXPECT_EQ(beating.sinceWrites, (std::vector<long>{999, 1000, 3999, 1}));

    beating.onData("x\n", 2);
    beating.checkHeartbit();
    EXPECT_EQ(beating.sinceReads.back(), 0);
}

TEST_F(WorkerTest, MayBeDeletedWhileItSendsAKeepAlive) {
    class FragileWorker : public Worker {
      public:
        using Worker::Worker;
        void sendHeartbit(long) override { onDisconnected(); }
        bool hasRemoteTimedout(long) override { return true; }
    };
    auto* doomed = new FragileWorker(&device, &parser);
    doomed->attach(nullptr, &executor);
    executor.disconnected = [](Worker* gone) { delete gone; };
    doomed->checkHeartbit();
    EXPECT_TRUE(events.empty());
}

TEST_F(WorkerTest, SubclassesMayTakeBytesBeforeTheParser) {
    class RawWorker : public Worker {
      public:
        using Worker::Worker;
        bool handledBeforeParser(const void*, int len) override { return len == 1; }
    };
    RawWorker raw(&device, &parser);
    raw.attach(nullptr, &executor);
    raw.onData("\n", 1);
    EXPECT_TRUE(events.empty());
    raw.onData("a\n", 2);
    EXPECT_EQ(events, std::vector<std::string>{"a"});
}

TEST_F(WorkerTest, PrintsItsConnectorAndItsDevice) {
    std::ostringstream expected;
    expected << "Worker(" << static_cast<void*>(&worker)
             << "): {Connector=" << static_cast<void*>(nullptr) << ", Device("
             << static_cast<void*>(&device) << "): {fd=-1, }}";
    std::ostringstream printed;
    printed << worker;
    EXPECT_EQ(printed.str(), expected.str());

    printed.str("");
    Worker bare;
    printed << static_cast<Worker*>(nullptr) << bare;
    EXPECT_EQ(printed.str().substr(0, 12), "Worker(NULL)");
    EXPECT_NE(printed.str().find(", Device(NULL)}"), std::string::npos);
}

}  // namespace
}  // namespace vyn
