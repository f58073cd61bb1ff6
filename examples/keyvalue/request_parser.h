// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/command.h>
#include <vyn/worker.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A command of a client: its words, which live as long as it is handled.
struct Request : vyn::Command {
    std::vector<std::string_view> words;
    const char* getClassName() override { return "Request"; }
    void dump(std::ostream& os) override { os << words.size() << " words"; }
};

// Cuts what a client sends into requests (RESP, version 2): "*2\r\n$3\r\nGET\r\n$1\r\na\r\n", or
// the words on a line, as somebody types them. What arrives whole is handed on without being
// copied. A client that sends something else, or too much, is told so and disconnected.
class RequestParser : public vyn::Parser {
  public:
    explicit RequestParser(vyn::Worker& client) : mClient(client) {}
    void createPacket(vyn::Command*) override {}  // answers are written as they are
    int parse(const void* data, int len, bool) override {
        if (len > 0) mInput = {static_cast<const char*>(data), static_cast<size_t>(len)};
        if (std::exchange(mKeptIsHandled, false)) mKept = std::string();
        const size_t length = mKept.empty() ? read(mInput) : readKept();
        if (isWhole(length)) {
            mInput.remove_prefix(length);
            onCommandParsed(&mRequest);
            return 0;
        }
        if (length == kMalformed) {
            mClient.writeRaw("-ERR protocol error\r\n", 21);
            mClient.disconnectWhenWritten(1000);
        } else if (mKept.empty()) {
            mKept.reserve(mNeeded);
            mKept = mInput;
        }
        return -1;
    }

  private:
    static constexpr size_t kUnfinished = 0, kMalformed = SIZE_MAX;  // in the place of a length
    static constexpr size_t kLongestLine = 1024, kLongestNumber = 16;
    static constexpr size_t kMostWords = 1024, kLongestRequest = 1024 * 1024;
    static bool isWhole(size_t length) { return length != kUnfinished && length != kMalformed; }

    // The length of the request at the front of the input.
    size_t read(std::string_view input) {
        mRequest.words.clear();
        mNeeded = 0;
        if (input.empty()) return kUnfinished;
        if (input.front() != '*') return readLine(input);
        size_t count = 0, size = 0;
        size_t at = readNumber(input, '*', kMostWords, count);
        for (size_t i = 0; isWhole(at) && i < count; ++i) {
            const size_t line = readNumber(input.substr(at), '$', kLongestRequest, size);
            if (!isWhole(line)) return line;
            mNeeded = at + line + size + 2;
            if (mNeeded > kLongestRequest) return kMalformed;
            if (mNeeded > input.size()) return kUnfinished;
            mRequest.words.push_back(input.substr(at + line, size));
            at = mNeeded;
        }
        return at;
    }
    // The length of a line, whose words are the request's.
    size_t readLine(std::string_view input) {
        const size_t end = input.find('\n');
        if (end > input.size()) return input.size() < kLongestLine ? kUnfinished : kMalformed;
        const std::string_view blanks = " \t\r", line = input.substr(0, end);
        for (size_t at = 0; (at = line.find_first_not_of(blanks, at)) < end;) {
            const size_t behind = std::min(line.find_first_of(blanks, at), end);
            mRequest.words.push_back(line.substr(at, behind - at));
            at = behind;
        }
        return end + 1;
    }
    // The same for a request whose beginning was kept. Copies little of what is behind its end.
    size_t readKept() {
        const size_t before = mKept.size();
        size_t length = kUnfinished;
        for (size_t taken = 0; taken < mInput.size() && length == kUnfinished;) {
            mKept.append(mInput, taken, mNeeded - std::min(mNeeded, mKept.size()) + kLongestLine);
            taken = mKept.size() - before;
            if (mKept.size() >= mNeeded) length = read(mKept);
        }
        mKeptIsHandled = isWhole(length);
        return mKeptIsHandled ? length - before : length;
    }
    // The length of a line that is the mark and a number.
    static size_t readNumber(std::string_view input, char mark, size_t most, size_t& number) {
        const std::string_view line = input.substr(0, kLongestNumber);
        if (!line.empty() && line.front() != mark) return kMalformed;
        const size_t end = line.find("\r\n");
        if (end > line.size()) return line.size() < kLongestNumber ? kUnfinished : kMalformed;
        const auto [last, error] = std::from_chars(line.data() + 1, line.data() + end, number);
        const bool isNumber = error == std::errc() && last == line.data() + end;
        return isNumber && number <= most ? end + 2 : kMalformed;
    }

    vyn::Worker& mClient;
    Request mRequest;
    std::string_view mInput;  // of what has just arrived
    std::string mKept;        // the beginning of a request, or all of one in several parts
    bool mKeptIsHandled = false;
    size_t mNeeded = 0;  // with fewer bytes there is no use in looking
};
