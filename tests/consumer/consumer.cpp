// SPDX-License-Identifier: Apache-2.0

// A program as an application would write it: a timer posts a message to the loop, which carries
// bytes that come back out of an archive. Ends with status 0 when all of it arrived.
#include <vyn/archive.h>
#include <vyn/handler.h>
#include <vyn/logging.h>
#include <vyn/timer.h>

#include <string>

struct Program : vyn::Handler, vyn::Timer {
    using Handler::Handler;
    bool onTimer(void* archive, int) override {
        sendMessage(vyn::Message::obtain(1, 0, 0, archive));
        return false;
    }
    void onMessage(vyn::Message message) override {
        *static_cast<vyn::Archive*>(message.obj) >> text;
        vyn::Connector::current()->stop();
    }

    std::string text;
};

int main() {
    vyn::Connector loop;
    Program program(loop);
    vyn::Archive archive;
    archive << std::string("text from an archive");
    loop.addTimer(&program, 1, &archive);
    loop.run();
    VYN_LOG_INFO << "arrived: " << program.text;
    return program.text == "text from an archive" ? 0 : 1;
}
