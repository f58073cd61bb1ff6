// Function devices between two loops on two threads.

#include <gtest/gtest.h>
#include <vyn/function_device.h>
#include <vyn/worker.h>

#include <atomic>
#include <cstring>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "support/fatal_capture.h"
#include "support/loop_thread.h"
#include "support/recording_executor.h"

namespace vyn {
namespace {

using testing::LoopThread;
using testing::RecordingExecutor;

// An endless sequence of payloads of 1 to 4096 bytes, each a slice of the same noise.
class Payloads {
  public:
    explicit Payloads(uint32_t seed) : mRandom(seed) {}

    struct Slice {
        const char* data;
        int length;
    };
    Slice next() {
        const size_t offset = mRandom() % (kNoise - 4096);
        return {noise().data() + offset, static_cast<int>(1 + mRandom() % 4096)};
    }

  private:
    static constexpr size_t kNoise = 1 << 16;
    static const std::string& noise() {
        static const std::string bytes = [] {
            std::string made(kNoise, '\0');
            std::minstd_rand random(7);
            for (char& byte : made) byte = static_cast<char>(random() >> 8);
            return made;
        }();
        return bytes;
    }
    std::minstd_rand mRandom;
};

constexpr int kPayloads = 100000;

// One side of the exchange: writes its sequence and checks that of the other side, writing one more
// for each that it reads, so that what is on its way stays bounded.
class Side : public Worker {
  public:
    Side(FunctionDevice* device, uint32_t ownSeed, uint32_t peerSeed)
        : Worker(device, nullptr), mOwn(ownSeed), mExpected(peerSeed) {}

    void writeNext() {
        if (mWritten++ >= kPayloads) return;
        const Payloads::Slice slice = mOwn.next();
        writeRaw(slice.data, slice.length);
    }
    bool handledBeforeParser(const void* data, int len) override {
        const Payloads::Slice slice = mExpected.next();
        mDiffering += len != slice.length ||
                      std::memcmp(data, slice.data, static_cast<size_t>(slice.length)) != 0;
        writeNext();
        if (++mRead == kPayloads) mDone.set_value(mDiffering);
        return true;
    }
    // How many payloads were wrong, when all have come.
    std::future<int> differing() { return mDone.get_future(); }

  private:
    Payloads mOwn;
    Payloads mExpected;
    int mWritten = 0;
    int mRead = 0;
    int mDiffering = 0;
    std::promise<int> mDone;
};

TEST(FunctionDevice, TwoLoopsExchangeEveryByteInOrder) {
    constexpr int kOnTheWay = 64;
    RecordingExecutor executorA;
    RecordingExecutor executorB;
    FunctionDevice a(&executorA);
    FunctionDevice b(&executorB);
    Side sideA(&a, 1, 2);
    Side sideB(&b, 2, 1);
    std::future<int> differingA = sideA.differing();
    std::future<int> differingB = sideB.differing();
    LoopThread loopA;
    LoopThread loopB;
    loopA.call([&] { loopA.connector().attach(&executorA); });
    loopB.call([&] { loopB.connector().attach(&executorB); });
    a.accept(&b);
    const auto start = [](Side& side) {
        for (int i = 0; i < kOnTheWay; ++i) side.writeNext();
    };
    loopA.call([&] { start(sideA); });
    loopB.call([&] { start(sideB); });
    EXPECT_EQ(differingA.get(), 0);
    EXPECT_EQ(differingB.get(), 0);
}

// Counts what it reads, and what of that is not as it was written.
class CountingWorker : public Worker {
  public:
    CountingWorker(Device* device, std::atomic<int>& read, std::atomic<int>& damaged)
        : Worker(device, nullptr), mRead(read), mDamaged(damaged) {}
    bool handledBeforeParser(const void* data, int len) override {
        ++mRead;
        mDamaged +=
            std::string(static_cast<const char*>(data), static_cast<size_t>(len)) != "steady";
        return true;
    }

  private:
    std::atomic<int>& mRead;
    std::atomic<int>& mDamaged;
};

TEST(FunctionDevice, MayBeDestroyedWithItsLoopWhileThePeerWrites) {
    testing::FatalCapture fatal;  // writes between two pairings
    RecordingExecutor executor;
    FunctionDevice writing(&executor);
    std::atomic<bool> stop{false};
    std::atomic<int> read{0};
    std::atomic<int> damaged{0};
    std::thread writer([&] {
        while (!stop) {
            for (int i = 0; i < 16; ++i) writing.write("steady", 6);
            std::this_thread::yield();
        }
    });
    for (int round = 0; round < 50; ++round) {
        const int before = read;
        auto reader = std::make_unique<RecordingExecutor>();
        auto loop = std::make_unique<LoopThread>();
        loop->call([&] { loop->connector().attach(reader.get()); });
        auto device = std::make_unique<FunctionDevice>(reader.get());
        CountingWorker worker(device.get(), read, damaged);
        device->accept(&writing);
        while (read < before + 20) std::this_thread::yield();
        if (round % 2 == 0) {
            loop->call([&] { device.reset(); });
        } else {
            device->disconnect();
        }
        loop.reset();
    }
    stop = true;
    writer.join();
    EXPECT_EQ(damaged, 0);
}

}  // namespace
}  // namespace vyn
