#include <gtest/gtest.h>
#include <vyn/authenticator.h>
#include <vyn/command.h>
#include <vyn/parser.h>

#include <deque>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/fatal_capture.h"
#include "support/line_protocol.h"

namespace vyn {
namespace {

using testing::FatalCapture;
using testing::Line;
using testing::LineParser;

// Returns what it is told to, and notes each call as "length" or "null".
class ScriptedParser : public Parser {
  public:
    explicit ScriptedParser(std::deque<int> results) : mResults(std::move(results)) {}

    std::vector<std::string> calls;
    std::function<void()> action;

    void createPacket(Command*) override { onPacketCreated("", 0); }
    int parse(const void* data, int len, bool more) override {
        EXPECT_TRUE(more);
        calls.push_back((data == nullptr ? "null " : "data ") + std::to_string(len));
        const int result = mResults.front();
        mResults.pop_front();
        // A copy: the action may delete this parser.
        if (auto copy = action) copy();
        return result;
    }
    void report(Command* command) { onCommandParsed(command); }

  private:
    std::deque<int> mResults;
};

struct CountingListener : Parser::PostListener {
    std::vector<std::string> lines;
    std::function<void()> action;

    void onCommandParsed(Command* cmd) override {
        lines.push_back(static_cast<Line*>(cmd)->text);
        // A copy: the action may delete this listener.
        if (auto copy = action) copy();
    }
    void onPacketCreated(const void*, int) override {}
};

TEST(Parser, IsCalledOnceWhenItNeedsMoreBytes) {
    ScriptedParser parser({-1});
    parser.doParse("abc", 3);
    EXPECT_EQ(parser.calls, std::vector<std::string>{"data 3"});
}

TEST(Parser, IsCalledWithoutNewBytesUntilItNeedsMore) {
    ScriptedParser parser({0, 5, -1});
    parser.doParse("abc", 3);
    EXPECT_EQ(parser.calls, (std::vector<std::string>{"data 3", "null 0", "null 0"}));
}

TEST(Parser, WithoutAListenerReportingIsFatalAndTheResultIsLost) {
    FatalCapture fatal;
    LineParser parser;
    parser.doParse("a\nb", 3);
    Line line("x");
    parser.createPacket(&line);
    EXPECT_EQ(fatal.count("\033[1;31mFATAL: missing parser-listener, can NOT report a command."),
              1);
    EXPECT_EQ(fatal.count("\033[1;31mFATAL: missing parser-listener, can NOT report a packet."), 1);
    EXPECT_EQ(fatal.lines().size(), 2u);
}

TEST(Parser, IsLeftAloneOnceItWasDeletedBetweenTwoCalls) {
    auto parser = std::make_unique<ScriptedParser>(std::deque<int>{0, 0});
    ScriptedParser* raw = parser.get();
    // The scripted parser touches nothing of itself after the action.
    raw->action = [&parser] { parser.reset(); };
    raw->doParse("abc", 3);
    EXPECT_EQ(parser, nullptr);
}

TEST(Parser, DropsWhatItStillReportsForAListenerThatIsGone) {
    FatalCapture fatal;
    LineParser parser;
    auto listener = std::make_unique<CountingListener>();
    int reported = 0;
    listener->action = [&] {
        ++reported;
        listener.reset();
    };
    parser.setListener(listener.get());
    parser.doParse("a\nb\nc\n", 6);
    EXPECT_EQ(reported, 1);
    EXPECT_EQ(fatal.lines().size(), 0u);

    // What is left in its buffer goes to the next listener.
    CountingListener next;
    parser.setListener(&next);
    parser.doParse("d\n", 2);
    EXPECT_EQ(next.lines, (std::vector<std::string>{"b", "c", "d"}));
}

TEST(Parser, GoesBackToItsListenerAfterServingAnotherInBetween) {
    LineParser parser;
    CountingListener first;
    CountingListener second;
    bool between = false;
    first.action = [&] {
        if (std::exchange(between, true)) return;
        parser.setListener(&second);
        parser.doParse("", 0);
    };
    parser.setListener(&first);
    parser.doParse("a\nb\nc\n", 6);
    EXPECT_EQ(first.lines, std::vector<std::string>{"a"});
    EXPECT_EQ(second.lines, (std::vector<std::string>{"b", "c"}));
    parser.doParse("d\n", 2);
    EXPECT_EQ(second.lines.size(), 2u);
    EXPECT_EQ(first.lines, (std::vector<std::string>{"a", "d"}));
}

TEST(Command, PrintsItselfInDecimal) {
    Line ping("rate 10");
    std::ostringstream os;
    os << std::hex << &ping << 16;
    EXPECT_EQ(os.str(), "Line: {rate 10}16");

    os.str("");
    os << ping << static_cast<const Command*>(&ping) << static_cast<Command*>(nullptr)
       << static_cast<const Command*>(nullptr);
    EXPECT_EQ(os.str(), "Line: {rate 10}Line: {rate 10}Command: NULLCommand: NULL");
}

TEST(Authenticator, PassesEverybodyUnlessOverridden) {
    Authenticator authenticator;
    EXPECT_TRUE(authenticator.pass());
    EXPECT_EQ(authenticator.worker(), nullptr);
}

}  // namespace
}  // namespace vyn
