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

#include "connector/connector_impl.h"
#include "support/virtual_slots.h"

// Programs and library call each other's virtual functions by their place in the vtable, so their
// order in a class is part of the interface: a new one may only come behind the last.

namespace vyn {
namespace {

using testing::kFirstAfterDestructor;
using testing::slotOf;
using testing::slotsFrom;
using testing::slotsOf;

#define EXPECT_SLOTS_FROM(first, ...)                     \
    do {                                                  \
        const auto slots = slotsOf(__VA_ARGS__);          \
        EXPECT_EQ(slots, slotsFrom(first, slots.size())); \
    } while (false)

TEST(VirtualSlots, OfTheLoop) {
    using Executor = Connector::Executor;
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Executor::onCommand, &Executor::onNewConnection,
                      &Executor::onDisconnected, &Executor::onHeartbitTimeout,
                      &Executor::onNetworkChanged, &Executor::onFileChanged,
                      &Executor::onAuthenticated, &Executor::onAuthenticationFailed,
                      &Executor::onMessage);
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Message::Callback::onMessage);
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Timer::onTimer, &Timer::onTimerRemoved);
    using Impl = Connector::Impl;
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Impl::attach, &Impl::detach, &Impl::addWorkerLocked,
                      &Impl::removeWorkerLocked, &Impl::run, &Impl::stop, &Impl::dump,
                      &Impl::addTimer, &Impl::removeTimer, &Impl::resetTimer,
                      &Impl::sendMessageDelayed, &Impl::queueWrite);
}

TEST(VirtualSlots, OfWorkersAndWhatAnApplicationPlugsIntoThem) {
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Parser::PostListener::onCommandParsed,
                      &Parser::PostListener::onPacketCreated);
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Worker::onCommandParsed, &Worker::onPacketCreated,
                      &Worker::getClassName, &Worker::dump, &Worker::onPostCreateCommand,
                      &Worker::onBeforeCreatePacket, &Worker::handledBeforeParser,
                      &Worker::hasRemoteTimedout, &Worker::sendHeartbit);
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Parser::createPacket, &Parser::parse);
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Command::getClassName, &Command::dump);
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Authenticator::pass, &Authenticator::require,
                      &Authenticator::onData);
}

// The twelve operations of every device, and what streams add to them.
template <typename AnyDevice>
void expectDeviceSlots() {
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &AnyDevice::getClassName, &AnyDevice::onDataArrival,
                      &AnyDevice::write, &AnyDevice::onReady, &AnyDevice::getFd, &AnyDevice::getFds,
                      &AnyDevice::disconnect, &AnyDevice::heartbitInterval,
                      &AnyDevice::heartbitTimeout, &AnyDevice::dump, &AnyDevice::onDisconnected);
}

template <typename AnyDevice>
void expectStreamSlots() {
    expectDeviceSlots<AnyDevice>();
    EXPECT_SLOTS_FROM(slotOf(&Device::onDisconnected) + 1, &AnyDevice::create, &AnyDevice::read);
}

TEST(VirtualSlots, OfDevices) {
    expectDeviceSlots<Device>();
    expectDeviceSlots<FunctionDevice>();
    expectDeviceSlots<InotifyDevice>();
    expectDeviceSlots<RtmgrDevice>();
    expectStreamSlots<BaseDevice>();
    expectStreamSlots<ConsoleDevice>();
    expectStreamSlots<NetDevice>();
    expectStreamSlots<ListenerDevice>();
    expectStreamSlots<UnixDevice>();
    expectStreamSlots<UnixListenerDevice>();
    EXPECT_EQ(slotOf(&UnixDevice::getAddress), slotOf(&BaseDevice::read) + 1);
    EXPECT_EQ(slotOf(&UnixListenerDevice::getAddress), slotOf(&BaseDevice::read) + 1);
}

TEST(VirtualSlots, OfOtherInterfaces) {
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &Serializer::serialize, &Serializer::deserialize);
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &XmlDocument::writeXml, &XmlDocument::readXml);
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &ThreadPool::Task::run);
    EXPECT_SLOTS_FROM(kFirstAfterDestructor, &logging::LogPrinter::print);
}

TEST(VirtualSlots, AreToldFromFunctionsThatAreNotVirtual) {
    EXPECT_EQ(slotOf(&Device::attach), -1);
    EXPECT_EQ(slotOf(&ListenerDevice::listen), -1);
}

}  // namespace
}  // namespace vyn
