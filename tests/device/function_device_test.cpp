// SPDX-License-Identifier: Apache-2.0

#include <vyn/function_device.h>

#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;

// A device with a worker that keeps its bytes.
struct End : FunctionDevice {
    explicit End(Connector::Executor& target) : FunctionDevice(&target), worker(this) {
        worker.attach(nullptr, &target);
    }
    ReceivedWorker worker;
};

// A loop with an executor of its own.
struct Place {
    Place() {
        loop.call([this] { loop.connector().attach(&executor); });
    }
    RecordingExecutor executor;
    LoopThread loop;
};

struct FunctionDeviceTest : ::testing::Test {
    RecordingExecutor nowhere;  // without a loop
    Place place;
    End one{nowhere};
    End other{place.executor};
    FatalCapture fatal;
    LogCapture log;

    // What is on its way arrives before its reader goes.
    ~FunctionDeviceTest() override {
        place.loop.call([] {});
    }

    bool isUnpaired(FunctionDevice& device) {
        const int before = fatal.count("Check failed. (mPeer != NULL)");
        return device.write("", 0) == 0 && fatal.count("Check failed. (mPeer != NULL)") > before;
    }
};

TEST_F(FunctionDeviceTest, IsPairedByNameWithWhatTheLastListenerAccepts) {
    RecordingExecutor executor;
    End older(executor);
    End listening(executor);
    executor.newConnection = [&](Worker* worker, int fd, void* data) {
        EXPECT_EQ(worker, &listening.worker);
        EXPECT_EQ(fd, -100);
        EXPECT_TRUE(isUnpaired(one));
        EXPECT_TRUE(other.accept(static_cast<FunctionDevice*>(data)));
    };
    older.listen("lamp");
    listening.listen("lamp");
    older.disconnect();
    EXPECT_TRUE(one.connect("lamp"));
    EXPECT_FALSE(isUnpaired(one) || isUnpaired(other));
    EXPECT_NE(printed<Device*>(&other).find("): {fd=-1, lamp[C][A]}"), std::string::npos);
    EXPECT_FALSE(one.connect("lamp"));
    EXPECT_EQ(fatal.count("Check failed. (mPeer == NULL) cannot connect twice."), 1);
    one.disconnect();
    EXPECT_TRUE(isUnpaired(one) && isUnpaired(other));
    listening.disconnect();
    EXPECT_FALSE(one.connect("lamp"));
    EXPECT_EQ(log.count("No such function device."), 1);
}

TEST_F(FunctionDeviceTest, AWriteArrivesWholeOnTheOtherLoop) {
    one.accept(&other);
    EXPECT_EQ(one.write("a\0cde", 5), 5);
    EXPECT_EQ(one.write("", 0), 0);
    EXPECT_EQ(one.write(nullptr, -1), -1);
    place.loop.call([] {});
    EXPECT_EQ(other.worker.chunks, (Strings{std::string("a\0cde", 5), ""}));
}

TEST_F(FunctionDeviceTest, WhatIsOnItsWayToADestroyedDeviceOrByALoopThatWentIsDropped) {
    auto destroyed = std::make_unique<End>(place.executor);
    other.accept(destroyed.get());
    one.accept(destroyed.get());
    EXPECT_FALSE(isUnpaired(other));  // still writes to it
    // The loop does not deliver while it makes this call.
    place.loop.call([&] {
        for (int i = 0; i < 100; ++i) one.write("bytes", 5);
        destroyed.reset();
    });
    EXPECT_TRUE(isUnpaired(one));
    EXPECT_TRUE(isUnpaired(other));
    one.accept(&other);
    one.write("more", 4);
    place.loop.call([] {});
    EXPECT_EQ(other.worker.chunks, Strings{"more"});
    Connector connector;
    connector.attach(&nowhere);
    other.write("leaks nothing", 13);
}

TEST_F(FunctionDeviceTest, MayDeleteItselfWhileItTakesBytes) {
    auto device = std::make_unique<FunctionDevice>(&place.executor);
    ReceivedWorker worker(device.get());
    worker.received = [&] { device.reset(); };
    one.accept(device.get());
    one.write("one", 3);
    place.loop.call([] {});
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(worker.chunks, Strings{"one"});
}

TEST_F(FunctionDeviceTest, MayBeDestroyedWithItsLoopWhileThePeerWrites) {
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        while (!stop) {
            for (int i = 0; i < 16; ++i) one.write("steady", 6);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    });
    for (int round = 0; round < 50; ++round) {
        auto there = std::make_unique<Place>();
        auto end = std::make_unique<End>(there->executor);
        end->accept(&one);
        size_t read = 0;
        while (read < 20) there->loop.call([&] { read = end->worker.chunks.size(); });
        there->loop.call([&] {
            EXPECT_EQ(end->worker.chunks, Strings(end->worker.chunks.size(), "steady"));
            round % 2 == 0 ? end.reset() : end->disconnect();
        });
        there.reset();
    }
    stop = true;
    writer.join();
}

}  // namespace
}  // namespace vyn
