// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/export.h>

namespace vyn {

class Command;

// The application's framing: turns incoming bytes into commands and commands into packets. It
// reports both to a listener, which is the worker that called it.
//
// Everything is called on the loop's thread. The application owns its parsers. One parser may serve
// several workers in turn as long as it keeps no bytes between calls.
class VYN_API Parser {
  public:
    // Where results go.
    class VYN_API PostListener {
      public:
        virtual ~PostListener();
        // A complete command.
        virtual void onCommandParsed(Command* cmd) = 0;
        // An encoded command. The bytes live for the length of the call only.
        virtual void onPacketCreated(const void* data, int len) = 0;
    };

    virtual ~Parser();

    // Encodes `cmd` and reports the bytes through onPacketCreated().
    virtual void createPacket(Command* cmd) = 0;
    // Takes `len` new bytes (or null and 0: go on with what is buffered) and reports each complete
    // command through onCommandParsed(). Returns 0 or more when it made progress and may have more
    // to report, and a negative value when it needs more bytes: it is called again and again until
    // then. `more` is always true.
    //
    // The executor may delete worker and device inside onCommandParsed(). The parser then goes on
    // undisturbed: what it still reports in this call is dropped, and it is not called again.
    virtual int parse(const void* data, int len, bool more) = 0;

    // Sets where results go; not owned. The worker calls it before each doParse() and
    // createPacket().
    void setListener(PostListener* listener);
    // Offers the bytes to parse() once, and then calls it without new bytes until it asks for more.
    void doParse(const void* data, int len);

  protected:
    // What a concrete parser calls to report. Without a listener each is a fatal message.
    void onCommandParsed(Command* cmd);
    void onPacketCreated(const void* data, int len);

  private:
    friend class ParserCall;

    PostListener* mListener = nullptr;
};

}  // namespace vyn
