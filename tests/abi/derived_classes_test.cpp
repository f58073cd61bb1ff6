// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <vyn/archive.h>
#include <vyn/authenticator.h>
#include <vyn/console_device.h>
#include <vyn/function_device.h>
#include <vyn/inotify_device.h>
#include <vyn/net_device.h>
#include <vyn/rtmgr_device.h>
#include <vyn/thread_pool.h>
#include <vyn/timer.h>
#include <vyn/unix_device.h>
#include <vyn/xml_codec.h>

#include <sstream>

#include "support/application.h"
#include "support/devices.h"
#include "support/files.h"
#include "support/log_capture.h"

// This program is linked with the shared library, as an application is. A class that is derived
// from one of the library's needs its vtable and, with run-time type information, that of the base:
// what is not exported fails at linking.

namespace vyn::testing {
namespace {

template <typename Base>
struct Own : Base {
    using Base::Base;
    const char* getClassName() override { return "Own"; }
};

template <typename Shown, typename Base = Shown, typename... Arguments>
void expectOverridden(const Arguments&... arguments) {
    Own<Base> own(arguments...);
    std::ostringstream os;
    os << static_cast<Shown*>(&own);
    EXPECT_EQ(os.str().substr(0, 3), "Own");
}

TEST(DerivedClasses, OfDevicesWorkersAndCommandsAreCalledByTheSharedLibrary) {
    RecordingExecutor executor;
    const TemporaryFolder folder;
    expectOverridden<Device, FakeDevice>();
    expectOverridden<Device, NetDevice>();
    expectOverridden<Device, ListenerDevice>();
    expectOverridden<Device, UnixDevice>();
    expectOverridden<Device, UnixListenerDevice>(folder / "socket");
    expectOverridden<Device, FunctionDevice>(&executor);
    expectOverridden<Device, InotifyDevice>();
    expectOverridden<Device, RtmgrDevice>();
    expectOverridden<Device, ConsoleDevice>();
    expectOverridden<Worker>();
    expectOverridden<Command, Line>("text");
}

struct OwnMessage : logging::LogMessage {
    using LogMessage::LogMessage;
};

// All that an application plugs into the library.
struct Plug : RecordingExecutor,
              Timer,
              Message::Callback,
              Authenticator,
              Parser::PostListener,
              Serializer,
              XmlDocument,
              ThreadPool::Task {
    bool onTimer(void* loop, int) override {
        static_cast<Connector*>(loop)->sendMessageDelayed(this,
                                                          Message::obtain(this, 1, 0, 0, loop), 0);
        return false;
    }
    void onMessage(Message posted) override { static_cast<Connector*>(posted.obj)->stop(); }
    bool pass() override { return false; }
    void onCommandParsed(Command*) override {}
    void onPacketCreated(const void*, int len) override { value = std::to_string(len); }
    void serialize(Archive& archive) override { archive << value; }
    void deserialize(Archive& archive) override { archive >> value; }
    void writeXml(XmlCodec* codec) override { codec->enter(value, true); }
    void readXml(XmlCodec*) override {}
    void run() override { OwnMessage("tag", logging::kLevelInfo) << "said"; }

    std::string value;
};

TEST(DerivedClasses, OfWhatAnApplicationPlugsInAreCalledByTheSharedLibrary) {
    Plug plug, loaded;
    LineParser parser;
    parser.setListener(&plug);
    Line line("text");
    parser.createPacket(&line);
    Worker worker;
    worker.attach(&plug);
    EXPECT_FALSE(worker.hasAuthenticated());

    Connector loop;
    loop.attach(&plug);
    loop.addTimer(&plug, 1, &loop);
    loop.run();

    Buffer block;
    plug.saveTo(block);
    loaded.loadFrom(block);
    EXPECT_EQ(loaded.value, "5");
    EXPECT_EQ(loaded.encode(), "<5/>\n\n");
    LogCapture log;
    { ThreadPool(1).addTask(new Plug); }
    EXPECT_EQ(log.count("said"), 1);
}

}  // namespace
}  // namespace vyn::testing
