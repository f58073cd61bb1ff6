#include <gtest/gtest.h>
#include <vyn/function_device.h>

#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/fatal_capture.h"
#include "support/log_capture.h"
#include "support/loop_thread.h"
#include "support/received_worker.h"
#include "support/recording_executor.h"

namespace vyn {
namespace {

using testing::FatalCapture;
using testing::LoopThread;
using testing::RecordingExecutor;

// A device that keeps the messages it takes, with a worker that keeps its bytes.
struct End : FunctionDevice {
    explicit End(Connector::Executor* target = nullptr)
        : FunctionDevice(target != nullptr ? target : &executor), worker(this) {
        worker.attach(nullptr, &executor);
    }
    void onMessage(Message msg) override {
        messages.push_back(msg);
        threads.push_back(std::this_thread::get_id());
        FunctionDevice::onMessage(msg);
    }
    std::string label() {
        std::ostringstream os;
        dump(os);
        return os.str();
    }
    bool isUnpaired() {
        FatalCapture fatal;
        return write("", 0) == 0 && fatal.count("Check failed. (mPeer != NULL)") == 1;
    }

    RecordingExecutor executor;
    testing::ReceivedWorker worker;
    std::vector<Message> messages;
    std::vector<std::thread::id> threads;
};

TEST(FunctionDevice, IsPairedByNameWhenTheListenerAccepts) {
    End listening;
    End connecting;
    End accepting;
    int announcements = 0;
    listening.executor.newConnection = [&](Worker* worker, int fd, void* data) {
        ++announcements;
        EXPECT_EQ(worker, &listening.worker);
        EXPECT_EQ(fd, -100);
        EXPECT_EQ(data, static_cast<FunctionDevice*>(&connecting));
        EXPECT_TRUE(connecting.isUnpaired());
        EXPECT_TRUE(accepting.accept(static_cast<FunctionDevice*>(data)));
    };
    listening.listen("lamp");
    EXPECT_TRUE(connecting.connect("lamp"));
    EXPECT_EQ(announcements, 1);
    EXPECT_FALSE(connecting.isUnpaired());
    EXPECT_FALSE(accepting.isUnpaired());
    EXPECT_EQ(listening.label(), "lamp[L]");
    EXPECT_EQ(connecting.label(), "lamp[C]");
    EXPECT_EQ(accepting.label(), "lamp[C][A]");

    std::ostringstream printed;
    printed << static_cast<Device*>(&connecting);
    std::ostringstream expected;
    expected << "FunctionDevice(" << static_cast<const void*>(&connecting) << "): {fd=-1, lamp[C]}";
    EXPECT_EQ(printed.str(), expected.str());
}

TEST(FunctionDevice, CannotConnectToAnUnknownNameNorTwice) {
    End one;
    testing::LogCapture capture;
    EXPECT_FALSE(one.connect("nobody"));
    EXPECT_EQ(capture.texts(), std::vector<std::string>{"No such function device."});
    EXPECT_EQ(one.label(), "");

    End other;
    other.listen("other");
    one.accept(&other);
    FatalCapture fatal;
    EXPECT_FALSE(one.connect("other"));
    EXPECT_EQ(fatal.count("Check failed. (mPeer == NULL) cannot connect twice."), 1);
}

TEST(FunctionDevice, ANameBelongsToTheLastThatListensUntilItDisconnects) {
    End older;
    End newer;
    End connecting;
    std::string reached;
    older.executor.newConnection = [&](Worker*, int, void*) { reached += "older "; };
    newer.executor.newConnection = [&](Worker*, int, void*) { reached += "newer "; };
    older.listen("first");
    older.listen("shared");
    newer.listen("shared");
    EXPECT_TRUE(connecting.connect("first"));
    EXPECT_TRUE(connecting.connect("shared"));
    EXPECT_EQ(reached, "older newer ");
    older.disconnect();
    EXPECT_FALSE(connecting.connect("first"));
    EXPECT_TRUE(connecting.connect("shared"));
    newer.disconnect();
    EXPECT_FALSE(connecting.connect("shared"));
}

TEST(FunctionDevice, AWriteArrivesWholeOnTheOtherLoop) {
    RecordingExecutor here;
    RecordingExecutor there;
    LoopThread loopHere;
    LoopThread loopThere;
    loopHere.call([&] { loopHere.connector().attach(&here); });
    loopThere.call([&] { loopThere.connector().attach(&there); });
    End one(&here);
    End other(&there);
    one.accept(&other);
    EXPECT_EQ(one.write("a\0cde", 5), 5);
    EXPECT_EQ(one.write("", 0), 0);
    EXPECT_EQ(one.write(nullptr, -1), -1);
    EXPECT_EQ(other.write("back", 4), 4);

    std::thread::id threadThere;
    loopThere.call([&] { threadThere = std::this_thread::get_id(); });
    loopHere.call([] {});
    EXPECT_EQ(one.worker.chunks, std::vector<std::string>{"back"});
    EXPECT_EQ(other.worker.chunks, (std::vector<std::string>{std::string("a\0cde", 5), ""}));
    ASSERT_EQ(other.messages.size(), 2u);
    EXPECT_EQ(other.threads[0], threadThere);
    const Message& message = other.messages[0];
    EXPECT_EQ(message.what, 1001);
    EXPECT_EQ(message.arg1, 5);
    EXPECT_EQ(message.arg2, 0);
    EXPECT_EQ(message.arg3, 0);
    EXPECT_EQ(message.callback, static_cast<Message::Callback*>(&other));
    EXPECT_EQ(message.target, &there);
}

TEST(FunctionDevice, TakesOnlyMessagesThatCarryBytes) {
    End device;
    device.onMessage(Message::obtain(1002, 5, 0, nullptr));
    EXPECT_TRUE(device.worker.chunks.empty());
    device.onMessage(Message::obtain(1001, 3, 0, new char[3]{'a', 'b', 'c'}));
    device.onMessage(Message::obtain(1001, 0, 0, nullptr));
    EXPECT_EQ(device.worker.chunks, (std::vector<std::string>{"abc", ""}));
}

TEST(FunctionDevice, DisconnectingTellsNobodyButTheNextWrite) {
    End one;
    End other;
    int disconnections = 0;
    one.executor.disconnected = other.executor.disconnected = [&](Worker*) { ++disconnections; };
    one.accept(&other);
    one.disconnect();
    EXPECT_EQ(disconnections, 0);
    FatalCapture fatal;
    EXPECT_EQ(other.write("bytes", 5), 5);
    EXPECT_EQ(one.write("bytes", 5), 5);
    EXPECT_EQ(fatal.count("Check failed. (mPeer != NULL)"), 2);
}

TEST(FunctionDevice, WhatIsOnItsWayToADestroyedDeviceIsDropped) {
    RecordingExecutor there;
    LoopThread loop;
    loop.call([&] { loop.connector().attach(&there); });
    auto destroyed = std::make_unique<End>(&there);
    End writing;
    writing.accept(destroyed.get());
    // The loop does not deliver while it makes this call.
    loop.call([&] {
        for (int i = 0; i < 100; ++i) writing.write("bytes", 5);
        destroyed.reset();
    });
    End next(&there);
    writing.accept(&next);
    writing.write("more", 4);
    loop.call([] {});
    EXPECT_EQ(next.worker.chunks, std::vector<std::string>{"more"});
}

TEST(FunctionDevice, WhatIsOnItsWayDoesNotLeakWhenTheLoopGoesFirst) {
    RecordingExecutor there;
    End reading(&there);
    End writing;
    writing.accept(&reading);
    writing.write("to an executor without a connector", 34);
    {
        Connector connector;
        connector.attach(&there);
        writing.write("bytes", 5);
    }
    EXPECT_TRUE(reading.worker.chunks.empty());
}

TEST(FunctionDevice, MayDeleteItselfWhileItTakesBytes) {
    RecordingExecutor there;
    LoopThread loop;
    loop.call([&] { loop.connector().attach(&there); });

    struct SelfDeleting : Worker {
        explicit SelfDeleting(std::unique_ptr<FunctionDevice>& own)
            : Worker(own.get(), nullptr), device(own) {}
        bool handledBeforeParser(const void* data, int len) override {
            device.reset();
            received.assign(static_cast<const char*>(data), static_cast<size_t>(len));
            return true;
        }
        std::unique_ptr<FunctionDevice>& device;
        std::string received;
    };
    auto device = std::make_unique<FunctionDevice>(&there);
    SelfDeleting worker(device);
    End writing;
    writing.accept(device.get());
    writing.write("one", 3);
    loop.call([] {});
    EXPECT_EQ(worker.received, "one");
    EXPECT_TRUE(writing.isUnpaired());
}

TEST(FunctionDevice, ADestroyedDeviceLeavesNoWriterBehind) {
    End first;
    End second;
    auto contested = std::make_unique<End>();
    first.accept(contested.get());
    second.accept(contested.get());
    EXPECT_FALSE(first.isUnpaired());  // still writes to it
    contested.reset();
    EXPECT_TRUE(first.isUnpaired());
    EXPECT_TRUE(second.isUnpaired());
}

}  // namespace
}  // namespace vyn
