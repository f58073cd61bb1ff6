#include <gtest/gtest.h>
#include <vyn/archive.h>
#include <vyn/authenticator.h>
#include <vyn/command.h>
#include <vyn/console_device.h>
#include <vyn/function_device.h>
#include <vyn/inotify_device.h>
#include <vyn/logging.h>
#include <vyn/net_device.h>
#include <vyn/parser.h>
#include <vyn/rtmgr_device.h>
#include <vyn/thread_pool.h>
#include <vyn/timer.h>
#include <vyn/unix_device.h>
#include <vyn/worker.h>
#include <vyn/xml_codec.h>

#include <sstream>

#include "support/fake_device.h"
#include "support/recording_executor.h"
#include "support/temporary_folder.h"

// This program is linked with the shared library, as an application is. A class that is derived
// from one of the library's needs its vtable and, with run-time type information, that of the base:
// what is not exported fails at linking.

namespace vyn {
namespace {

using testing::FakeDevice;
using testing::RecordingExecutor;
using testing::TemporaryFolder;

template <typename Base>
struct Own : Base {
    using Base::Base;
    const char* getClassName() override { return "Own"; }
};

template <typename Object>
std::string printed(Object* object) {
    std::ostringstream os;
    os << object;
    return os.str().substr(0, 4);
}

template <typename Base, typename... Arguments>
void expectOverridden(const Arguments&... arguments) {
    Own<Base> own(arguments...);
    Base* base = &own;
    EXPECT_EQ(printed<Device>(base), "Own(");
}

TEST(DerivedClasses, OfDevicesAndWorkersAreCalledByTheSharedLibrary) {
    RecordingExecutor executor;
    const TemporaryFolder folder;
    expectOverridden<FakeDevice>();
    expectOverridden<NetDevice>();
    expectOverridden<ListenerDevice>();
    expectOverridden<UnixDevice>();
    expectOverridden<UnixListenerDevice>(folder / "socket");
    expectOverridden<FunctionDevice>(&executor);
    expectOverridden<InotifyDevice>();
    expectOverridden<RtmgrDevice>();
    expectOverridden<ConsoleDevice>();
    Own<Worker> worker;
    EXPECT_EQ(printed<Worker>(&worker), "Own(");
}

struct OwnPing : Command {
    const char* getClassName() override { return "Ping"; }
    void dump(std::ostream&) override {}
};

struct OwnParser : Parser {
    void createPacket(Command*) override { onPacketCreated("p", 1); }
    int parse(const void*, int, bool) override { return -1; }
};

struct OwnAuthenticator : Authenticator {
    bool pass() override { return false; }
};

struct OwnListener : Parser::PostListener {
    void onCommandParsed(Command*) override {}
    void onPacketCreated(const void*, int len) override { packetLength = len; }
    int packetLength = 0;
};

TEST(DerivedClasses, OfWhatIsPluggedIntoAWorkerAreCalledByTheSharedLibrary) {
    OwnPing ping;
    EXPECT_EQ(printed<Command>(&ping), "Ping");
    OwnParser parser;
    OwnListener listener;
    parser.setListener(&listener);
    parser.createPacket(&ping);
    EXPECT_EQ(listener.packetLength, 1);
    Worker worker;
    OwnAuthenticator authenticator;
    worker.attach(&authenticator);
    EXPECT_FALSE(worker.hasAuthenticated());
}

struct Service : RecordingExecutor, Timer, Message::Callback {
    explicit Service(Connector& connector) : loop(connector) {}
    bool onTimer(void*, int) override {
        Message stop = Message::obtain(this, 1, 0, 0, nullptr);
        loop.sendMessageDelayed(this, stop, 0);
        return false;
    }
    void onMessage(Message posted) override {
        received = posted.what;
        loop.stop();
    }
    Connector& loop;
    int received = 0;
};

TEST(DerivedClasses, OfTheLoopAreCalledByTheSharedLibrary) {
    Connector loop;
    Service service(loop);
    loop.attach(&service);
    loop.addTimer(&service, 1, nullptr);
    loop.run();
    EXPECT_EQ(service.received, 1);
}

struct Field : Serializer, XmlDocument {
    void serialize(Archive& archive) override { archive << value; }
    void deserialize(Archive& archive) override { archive >> value; }
    void writeXml(XmlCodec* codec) override {
        codec->enter("field", true);
        codec->put("value", value);
        codec->leave();
    }
    void readXml(XmlCodec* codec) override {
        codec->enter("field", false);
        codec->get("value", value);
    }
    std::string value;
};

TEST(DerivedClasses, OfCodecsAreCalledByTheSharedLibrary) {
    Field written, archived, encoded;
    written.value = "7";
    Buffer block;
    written.saveTo(block);
    archived.loadFrom(block);
    EXPECT_EQ(archived.value, "7");
    encoded.decode(written.encode());
    EXPECT_EQ(encoded.value, "7");
}

struct Printer : logging::LogPrinter {
    void print(const std::string& line) override { text += line; }
    std::string text;
};

struct OwnMessage : logging::LogMessage {
    using LogMessage::LogMessage;
};

struct Say : ThreadPool::Task {
    void run() override { OwnMessage("tag", logging::kLevelInfo) << "said"; }
};

TEST(DerivedClasses, OfTasksAndLogLinesAreCalledByTheSharedLibrary) {
    Printer printer;
    logging::setLoggingPrinter(&printer);
    {
        ThreadPool pool(1);
        pool.addTask(new Say);
    }
    logging::setLoggingPrinter(nullptr);
    EXPECT_NE(printer.text.find("said"), std::string::npos);
}

}  // namespace
}  // namespace vyn
