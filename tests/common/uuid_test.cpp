#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vyn/helper.h>
#include <vyn/logging.h>

#include <cstdlib>
#include <set>

#include "support/log_capture.h"

namespace vyn::helper {
namespace {

using vyn::testing::LogCapture;

// Lower-case hex digits everywhere but at the four places of "-".
::testing::AssertionResult hasForm(const std::string& text) {
    std::string form;
    for (const char c : text) form += std::string("0123456789abcdef").find(c) < 16 ? 'x' : c;
    if (form == "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx") return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << text;
}

TEST(Uuid, IsRandomInTheUsualForm) {
    std::set<std::string> seen;
    std::set<char> versions;
    for (int i = 0; i < 500; ++i) {
        const std::string text = uuid();
        ASSERT_TRUE(hasForm(text));
        seen.insert(text);
        versions.insert(text[14]);
    }
    EXPECT_EQ(seen.size(), 500u);
    EXPECT_GT(versions.size(), 8u) << "the raw bytes carry no version mark";
}

// While it lives, the process can open no further descriptor.
class NoDescriptors {
  public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &mSaved);
        const rlimit none{0, mSaved.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &mSaved); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit mSaved{};
};

// Nothing is logged meanwhile: sanitizers check streams with the help of descriptors.
TEST(Uuid, FallsBackWhenTheRandomDeviceCannotBeOpened) {
    logging::setLogLevel(logging::kLevelInfo);
    std::set<char> versions;
    {
        NoDescriptors none;
        for (int i = 0; i < 100; ++i) versions.insert(uuid()[14]);
    }
    logging::setLogLevel(logging::kLevelVerbose);
    EXPECT_EQ(versions, std::set<char>{'4'});
}

TEST(Uuid2, LogsThatItWasNeeded) {
    LogCapture capture;
    EXPECT_TRUE(hasForm(uuid()));
    EXPECT_TRUE(capture.lines().empty());
    EXPECT_TRUE(hasForm(uuid2()));
    EXPECT_EQ(capture.texts(), std::vector<std::string>{"\033[1;31m[ATTENTION]"});
}

TEST(Uuid2, MarksVersionAndVariant) {
    logging::setLogLevel(logging::kLevelInfo);
    for (int i = 0; i < 1000; ++i) {
        const std::string text = uuid2();
        ASSERT_TRUE(hasForm(text));
        ASSERT_EQ(text[14], '4') << text;
        ASSERT_NE(std::string("89ab").find(text[19]), std::string::npos) << text;
    }
    logging::setLogLevel(logging::kLevelVerbose);
}

// The identifier as rand() gives it after one seed.
std::string drawnFrom(unsigned int seed) {
    srand(seed);
    std::string text;
    char part[8];
    for (int i = 0; i < 16; ++i) {
        const int drawn = rand() % 255;
        if (i == 6) {
            snprintf(part, sizeof part, "4%x", static_cast<unsigned int>(drawn % 15));
        } else if (i == 8) {
            const char variant = "89ab"[rand() & 3];
            snprintf(part, sizeof part, "%c%x", variant, static_cast<unsigned int>(drawn % 15));
        } else {
            snprintf(part, sizeof part, "%02x", static_cast<unsigned int>(drawn));
        }
        text += part;
        if (i == 3 || i == 5 || i == 7 || i == 9) text += '-';
    }
    return text;
}

TEST(Uuid2, FollowsFromTheMonotonicClockAsSeed) {
    logging::setLogLevel(logging::kLevelInfo);
    // Of several identifiers the one drawn in the shortest time leaves the fewest seeds to try.
    int64_t start = 0, shortest = INT64_MAX;
    std::string text;
    for (int i = 0; i < 100; ++i) {
        const int64_t before = ntick();
        const std::string drawn = uuid2();
        const int64_t taken = ntick() - before;
        if (taken >= shortest) continue;
        shortest = taken;
        start = before;
        text = drawn;
    }
    logging::setLogLevel(logging::kLevelVerbose);

    bool found = false;
    for (int64_t tick = start; tick <= start + shortest && !found; ++tick) {
        found = drawnFrom(static_cast<unsigned int>(tick % 2147483647)) == text;
    }
    EXPECT_TRUE(found) << text << " in " << shortest << " ns";
}

}  // namespace
}  // namespace vyn::helper
