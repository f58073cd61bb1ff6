// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/command.h>
#include <vyn/worker.h>

#include <charconv>
#include <string>
#include <string_view>
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
        if (len > 0) take({static_cast<const char*>(data), static_cast<size_t>(len)});
        mRequest.words.clear();
        const long length = mInput.size() < mNeeded ? kUnfinished : read(mInput);
        if (length == kMalformed) {
            mClient.writeRaw("-ERR protocol error\r\n", 21);
            mClient.disconnectWhenWritten(1000);
        } else if (length == kUnfinished) {
            keepUnfinished();
        } else {
            mInput.remove_prefix(static_cast<size_t>(length));
            mNeeded = 1;
            onCommandParsed(&mRequest);
            return 0;
        }
        return -1;
    }

  private:
    static constexpr long kUnfinished = 0, kMalformed = -1;  // in the place of a length
    static constexpr long kMostWords = 1024, kLongestRequest = 1024 * 1024, kLongestNumber = 16;

    void take(std::string_view arrived) {
        mInput = mKept.empty() ? arrived : std::string_view(mKept.append(arrived));
    }
    void keepUnfinished() {
        if (mKept.empty()) {
            mKept = mInput;
        } else if (mInput.empty()) {
            mKept = std::string();  // gives the memory of a long request back
        } else {
            mKept.erase(0, mKept.size() - mInput.size());
        }
        mKept.reserve(mNeeded);
        mInput = mKept;
    }
    // The length of the request at the front of the input.
    long read(std::string_view input) {
        if (input.front() != '*') return readLine(input);
        long count = 0, size = 0;
        long at = readNumber(input, '*', kMostWords, count);
        if (at < 1) return at;
        for (long i = 0; i < count; ++i) {
            const long line =
                readNumber(input.substr(static_cast<size_t>(at)), '$', kLongestRequest, size);
            if (line < 1) return line;
            const auto begin = static_cast<size_t>(at + line);
            at += line + size + 2;
            if (at > kLongestRequest) return kMalformed;
            mNeeded = static_cast<size_t>(at);
            if (input.size() < mNeeded) return kUnfinished;
            mRequest.words.push_back(input.substr(begin, static_cast<size_t>(size)));
        }
        return at;
    }
    // The length of a line, whose words are the request's.
    long readLine(std::string_view input) {
        const size_t end = input.find('\n');
        if (end == std::string_view::npos) return input.size() < 1024 ? kUnfinished : kMalformed;
        const std::string_view blanks = " \t\r", line = input.substr(0, end);
        for (size_t at = 0; (at = line.find_first_not_of(blanks, at)) < end;) {
            const size_t behind = std::min(line.find_first_of(blanks, at), end);
            mRequest.words.push_back(line.substr(at, behind - at));
            at = behind;
        }
        return static_cast<long>(end + 1);
    }
    // The length of a line that is the mark and a number.
    static long readNumber(std::string_view input, char mark, long most, long& number) {
        const std::string_view line = input.substr(0, kLongestNumber);
        if (!line.empty() && line.front() != mark) return kMalformed;
        const size_t end = line.find("\r\n");
        if (end == std::string_view::npos) {
            return line.size() < kLongestNumber ? kUnfinished : kMalformed;
        }
        const auto [last, error] = std::from_chars(line.data() + 1, line.data() + end, number);
        const bool isNumber = error == std::errc() && last == line.data() + end;
        return isNumber && number >= 0 && number <= most ? static_cast<long>(end + 2) : kMalformed;
    }

    vyn::Worker& mClient;
    Request mRequest;
    std::string mKept;        // an unfinished request
    std::string_view mInput;  // what is to be read yet: of mKept, or of what has just arrived
    size_t mNeeded = 1;       // with fewer bytes there is no use in looking
};
