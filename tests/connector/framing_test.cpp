// SPDX-License-Identifier: Apache-2.0

#include <vyn/authenticator.h>
#include <vyn/buffer.h>
#include <vyn/framing.h>

#include <cstring>

#include "support/support.h"

namespace vyn::testing {
namespace {

// What a parser reports when bytes arrive in pieces of a size, up to the piece that it refuses.
struct Reported : Parser::PostListener {
    std::string all;
    void onCommandParsed(Command* command) override {
        const bool isLine = command->getClassName() == std::string("Line");
        all += isLine ? static_cast<Line*>(command)->text : static_cast<Frame*>(command)->payload;
        all += '|';
    }
    void onPacketCreated(const void* data, int len) override {
        all.append(static_cast<const char*>(data), static_cast<size_t>(len));
    }
    Reported(Parser&& parser, const std::string& bytes, size_t step) {
        parser.setListener(this);
        for (size_t at = 0; at < bytes.size(); at += step) {
            const std::string piece = bytes.substr(at, step);  // of which nothing stays
            parser.doParse(piece.data(), static_cast<int>(piece.size()));
        }
    }
};

TEST(Framing, GivesTheSameHoweverTheBytesAreCut) {
    const std::string longest(8, 'x');
    const std::string lines =
        "a\r\n\n\rb\r\r\n" + longest + "\r\n" + std::string("\0\n", 2) + longest + "\n";
    const std::string texts = "a||\rb\r|" + longest + '|' + std::string("\0|", 2) + longest + '|';
    for (size_t step = 1; step <= lines.size(); ++step) {
        LogCapture log;
        EXPECT_EQ(Reported(LineParser(nullptr, 8), lines + "open", step).all, texts);
        EXPECT_EQ(log.texts(), Strings());
        for (const char* tooLong : {"xxxxxxxxx\nc\n", "xxxxxxxxx", "\rxxxxxxxx\r\n"}) {
            EXPECT_EQ(Reported(LineParser(nullptr, 8), lines + tooLong, step).all, texts);
        }
        EXPECT_EQ(log.texts(), Strings(3, "line of more than 8 bytes, disconnect Device(NULL)"));
    }
}

TEST(Framing, BeginsAnewForAnotherConnection) {
    LineBuffer buffer(8);
    std::string_view line;
    for (const auto& [bytes, result] : {std::pair("half", LineBuffer::kIncomplete),
                                        std::pair("xxxxxxxxx", LineBuffer::kTooLong)}) {
        buffer.append(bytes, static_cast<int>(std::strlen(bytes)));
        EXPECT_EQ(buffer.next(line), result);
        buffer.clear();
        buffer.append("a\n", 2);
        EXPECT_EQ(buffer.next(line), LineBuffer::kWhole);
        EXPECT_EQ(line, "a");
    }
}

TEST(Framing, LeadsPayloadsByTheirLengthInEveryFormat) {
    for (const auto& [bytes, order, length] : {
             std::tuple(1, FrameFormat::kHighByteFirst, "03"),
             std::tuple(2, FrameFormat::kHighByteFirst, "0003"),
             std::tuple(2, FrameFormat::kLowByteFirst, "0300"),
             std::tuple(4, FrameFormat::kHighByteFirst, "00000003"),
             std::tuple(4, FrameFormat::kLowByteFirst, "03000000"),
         }) {
        LogCapture log;
        const FrameFormat format{bytes, order, 200};
        const std::string packet = format.packetOf("abc"), most(200, 'x');
        EXPECT_EQ(Buffer(packet.data(), bytes).toHexString() + packet.substr(packet.size() - 3),
                  std::string(length) + "abc");
        const std::string frames = packet + format.packetOf("") + format.packetOf(most) + packet;
        const FrameFormat other{bytes, order, 201};
        for (size_t step = 1; step < 20; ++step) {
            EXPECT_EQ(Reported(FrameParser(nullptr, format), frames, step).all,
                      "abc||" + most + "|abc|");
            EXPECT_EQ(
                Reported(FrameParser(nullptr, format), other.packetOf(most + 'x') + packet, step)
                    .all,
                "");
        }
        EXPECT_EQ(log.count("frame of more than 200 bytes, disconnect"), 19);
        EXPECT_EQ(format.packetOf(most + 'x'), "");
        EXPECT_EQ(log.count("frame of 201 bytes is too long to be written."), 1);
    }
}

TEST(Framing, KeepsForAnotherWorkerWhatCameWithTheLastWordsOfOneThatGoes) {
    FakeDevice device;
    LineParser parser(&device);
    RecordingExecutor executor;
    std::string heard;
    executor.command = [&](Worker* worker, Command* line) {
        heard += static_cast<Line*>(line)->text;
        delete worker;
    };
    for (const char* bytes : {"one\ntwo\nthr", "ee\n"}) {
        auto* worker = new Worker(&device, &parser);
        worker->attach(nullptr, &executor);
        const std::string read = bytes;  // of which nothing stays
        worker->onData(read.data(), static_cast<int>(read.size()));
    }
    EXPECT_EQ(heard, "onetwo");
}

// The executor deletes all that there is, in the midst of what one read brought.
TEST(Framing, DisconnectsWhoSendsTooMuchAfterWhatItHasSentBeforeThePasswordToo) {
    struct Password : Authenticator {
        LineBuffer buffer{8};
        bool hasPassed = false;
        bool pass() override { return hasPassed; }
        void onData(const void* data, int len) override {
            buffer.append(data, len);
            std::string_view line;
            if (buffer.next(line) == LineBuffer::kIncomplete) return;
            hasPassed = line == "secret";
            const std::string rest = buffer.takeRest();
            worker()->onData(rest.data(), static_cast<int>(rest.size()));
        }
    };
    LogCapture log;
    const auto [fd, peer] = makeSocketPair();
    auto* device = new StreamDevice(fd);
    auto* parser = new LineParser(device, 8);
    auto* authenticator = new Password;
    auto* worker = new Worker(device, parser);
    worker->attach(authenticator);
    RecordingExecutor executor;
    worker->attach(nullptr, &executor);
    std::string heard;
    executor.command = [&](Worker*, Command* line) { heard += static_cast<Line*>(line)->text; };
    executor.disconnected = [&](Worker*) {
        heard += "!";
        delete worker, delete parser, delete authenticator, delete device;
    };
    const std::string bytes = "secret\none\ntwo\nmore than 8\nnever\n";
    worker->onData(bytes.data(), 3);
    worker->onData(bytes.data() + 3, static_cast<int>(bytes.size()) - 3);
    EXPECT_EQ(heard, "onetwo!");
    EXPECT_EQ(log.count("line of more than 8 bytes, disconnect "), 1);
    close(peer);
}

}  // namespace
}  // namespace vyn::testing
