// Whatever bytes arrive where the kernel's records are expected, nothing outside of them is
// touched: each block is also read from memory that ends where the block does.

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <sys/inotify.h>
#include <vyn/inotify_device.h>
#include <vyn/logging.h>
#include <vyn/rtmgr_device.h>
#include <vyn/worker.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "device/inotify_records.h"
#include "device/netlink_records.h"
#include "support/emulator.h"
#include "support/record_feed.h"
#include "support/recording_executor.h"

namespace vyn {
namespace {

const int kIterations = testing::randomInputs(500000);

// Blocks of records that are sound, damaged in a few bytes, truncated or plain noise.
class RecordSource {
  public:
    using Make = std::string (*)(RecordSource&);

    explicit RecordSource(Make makeRecord) : mMakeRecord(makeRecord) {}

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(mRandom() % limit); }
    std::string noise(size_t size) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) byte = static_cast<char>(mRandom());
        return bytes;
    }

    std::string next() {
        if (below(8) == 0) return noise(1 + below(80));
        std::string block;
        for (uint32_t records = 1 + below(4); records > 0; --records) block += mMakeRecord(*this);
        for (uint32_t damages = below(3); damages > 0; --damages) {
            block[below(static_cast<uint32_t>(block.size()))] = static_cast<char>(mRandom());
        }
        if (below(2) == 0) block.resize(1 + below(static_cast<uint32_t>(block.size())));
        return block;
    }

  private:
    std::minstd_rand mRandom{20240229};
    Make mMakeRecord;
};

// A copy whose every neighbouring byte is out of bounds.
struct ExactCopy {
    explicit ExactCopy(const std::string& block)
        : bytes(new char[block.size()]), size(block.size()) {
        std::memcpy(bytes.get(), block.data(), size);
    }
    std::unique_ptr<char[]> bytes;
    size_t size;
};

// Error lines are most of what damaged records give, and not what these tests are about.
class KernelRecords : public ::testing::Test {
  protected:
    void SetUp() override { logging::setLogLevel(0); }
    void TearDown() override { logging::setLogLevel(logging::kLevelVerbose); }

    testing::RecordingExecutor mExecutor;
};

TEST_F(KernelRecords, OfChangedFilesAreReadWithinTheirBytes) {
    RecordSource source([](RecordSource& random) {
        inotify_event event{};
        event.mask = 1u << random.below(12);
        event.len = random.below(3) * 8;
        return testing::bytesOf(event) + random.noise(event.len);
    });
    InotifyDevice device;
    Worker worker(&device, nullptr);
    worker.attach(nullptr, &mExecutor);
    testing::RecordFeed feed(device.getFd());
    size_t reports = 0;
    size_t disconnections = 0;
    mExecutor.fileChanged = [&](Worker*, const std::string&, int) { ++reports; };
    mExecutor.disconnected = [&](Worker* disconnected) {
        ++disconnections;
        disconnected->enable();
    };
    for (int i = 0; i < kIterations; ++i) {
        const std::string block = source.next();
        const ExactCopy copy(block);
        const size_t expected = inotify::namedChanges(copy.bytes.get(), copy.size).size();
        reports = disconnections = 0;
        ASSERT_TRUE(feed.send(block));
        device.onDataArrival(device.getFd());
        ASSERT_EQ(disconnections, block.size() < 16 ? 1u : 0u) << i;
        ASSERT_EQ(reports, expected) << i;
    }
}

TEST_F(KernelRecords, OfChangedNetworksAreReadWithinTheirBytes) {
    RecordSource source([](RecordSource& random) {
        const uint32_t valueSize = random.below(5) * 4;
        const rtattr attribute{static_cast<uint16_t>(sizeof(rtattr) + valueSize),
                               static_cast<uint16_t>(random.below(6))};
        nlmsghdr header{};
        header.nlmsg_type = static_cast<uint16_t>(random.below(24));
        header.nlmsg_len =
            static_cast<uint32_t>(sizeof header + sizeof(ifinfomsg) + attribute.rta_len);
        return testing::bytesOf(header) + random.noise(sizeof(ifinfomsg)) +
               testing::bytesOf(attribute) + random.noise(valueSize);
    });
    RtmgrDevice device;
    Worker worker(&device, nullptr);
    worker.attach(nullptr, &mExecutor);
    testing::RecordFeed feed(device.getFd());
    int changes = 0;
    size_t names = 0;
    mExecutor.networkChanged = [&](Worker*) { ++changes; };
    for (int i = 0; i < kIterations; ++i) {
        const std::string block = source.next();
        const ExactCopy copy(block);
        names += netlink::interfaceNames(copy.bytes.get(), copy.size).size();
        ASSERT_TRUE(feed.send(block));
        device.onDataArrival(device.getFd());
        ASSERT_EQ(changes, i + 1);
    }
    EXPECT_GT(names, static_cast<size_t>(kIterations) / 50);  // the records were not all refused
}

}  // namespace
}  // namespace vyn
