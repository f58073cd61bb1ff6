#pragma once

#include <vyn/command.h>
#include <vyn/parser.h>

#include <string>

namespace vyn::testing {

// The protocol of the tests: lines of text, each a command.
class Line : public Command {
  public:
    explicit Line(std::string content) : text(std::move(content)) {}

    std::string text;

    const char* getClassName() override { return "Line"; }
    void dump(std::ostream& os) override { os << text; }
};

// Reports one line a call; the command lives for the report only.
class LineParser : public Parser {
  public:
    void createPacket(Command* cmd) override {
        const std::string packet = static_cast<Line*>(cmd)->text + "\n";
        onPacketCreated(packet.data(), static_cast<int>(packet.size()));
    }

    int parse(const void* data, int len, bool) override {
        if (len > 0) mBuffered.append(static_cast<const char*>(data), static_cast<size_t>(len));
        const size_t end = mBuffered.find('\n');
        if (end == std::string::npos) return -1;
        Line line(mBuffered.substr(0, end));
        mBuffered.erase(0, end + 1);
        onCommandParsed(&line);
        return 0;
    }

  private:
    std::string mBuffered;
};

}  // namespace vyn::testing
