#include <gtest/gtest.h>
#include <vyn/archive.h>
#include <vyn/authenticator.h>
#include <vyn/buffer.h>
#include <vyn/command.h>
#include <vyn/condition.h>
#include <vyn/console_device.h>
#include <vyn/diagnoser.h>
#include <vyn/function_device.h>
#include <vyn/ini_config.h>
#include <vyn/inotify_device.h>
#include <vyn/lock.h>
#include <vyn/logging.h>
#include <vyn/message.h>
#include <vyn/net_device.h>
#include <vyn/network.h>
#include <vyn/parser.h>
#include <vyn/pipe_waiter.h>
#include <vyn/rtmgr_device.h>
#include <vyn/thread_pool.h>
#include <vyn/timer.h>
#include <vyn/tls.h>
#include <vyn/unix_device.h>
#include <vyn/worker.h>
#include <vyn/xml_codec.h>

#include <algorithm>
#include <functional>
#include <map>
#include <sstream>

#include "connector/timer_wrapper.h"
#include "support/record_layout.h"

// Programs reach into the records of the library, derive from its classes and hold its objects:
// where a field lies and how big a class is are part of the interface.

namespace vyn::testing {

VYN_EXPOSE_FIELDS(MessageFields, &Message::what, &Message::arg1, &Message::arg2, &Message::arg3,
                  &Message::obj, &Message::when, &Message::callback, &Message::target);
VYN_EXPOSE_FIELDS(BufferFields, &Buffer::words, &Buffer::size, &Buffer::data);
VYN_EXPOSE_FIELDS(WriteNodeFields, &WriteNode::data, &WriteNode::offset, &WriteNode::size);
VYN_EXPOSE_FIELDS(ExecutorFields, &Connector::Executor::mConnector);
VYN_EXPOSE_FIELDS(WorkerFields, &Worker::mDevice, &Worker::mConnector, &Worker::mExecutor,
                  &Worker::mParser, &Worker::mAuthenticator, &Worker::mValid, &Worker::mLoading,
                  &Worker::mLastWriteTick, &Worker::mLastReadTick, &Worker::mSelfCall,
                  &Worker::mWriteQueue, &Worker::mWriteLock);
VYN_EXPOSE_FIELDS(ParserFields, &Parser::mListener);
VYN_EXPOSE_FIELDS(AuthenticatorFields, &Authenticator::mWorker);
VYN_EXPOSE_FIELDS(DeviceFields, &Device::mWorker);
VYN_EXPOSE_FIELDS(NetDeviceFields, &NetDevice::mSocket);
VYN_EXPOSE_FIELDS(UnixDeviceFields, &UnixDevice::mSocket);
VYN_EXPOSE_FIELDS(FunctionDeviceFields, &FunctionDevice::mPeer, &FunctionDevice::mExecutor,
                  &FunctionDevice::mName);
VYN_EXPOSE_FIELDS(InotifyDeviceFields, &InotifyDevice::mFd, &InotifyDevice::mPath);
VYN_EXPOSE_FIELDS(RtmgrDeviceFields, &RtmgrDevice::mSocket);
VYN_EXPOSE_FIELDS(TaskFields, &ThreadPool::Task::mId);
VYN_EXPOSE_FIELDS(ThreadPoolFields, &ThreadPool::mCond, &ThreadPool::mTimeCond,
                  &ThreadPool::mThreads, &ThreadPool::mQuit, &ThreadPool::mTasks,
                  &ThreadPool::mRunningSince);
VYN_EXPOSE_FIELDS(DiagnoserFields, &Diagnoser::mRecords, &Diagnoser::mCapacity, &Diagnoser::mStart,
                  &Diagnoser::mCount);
VYN_EXPOSE_FIELDS(DiagnoserRecordFields, &Diagnoser::Record::time, &Diagnoser::Record::awake);
VYN_EXPOSE_FIELDS(AddressFields, &helper::InterfaceAddress::ip,
                  &helper::InterfaceAddress::prefixLength);
VYN_EXPOSE_FIELDS(NetworkFields, &helper::NetworkDevice::name, &helper::NetworkDevice::index,
                  &helper::NetworkDevice::up, &helper::NetworkDevice::loopback,
                  &helper::NetworkDevice::mac, &helper::NetworkDevice::ipv4,
                  &helper::NetworkDevice::ipv6);
VYN_EXPOSE_FIELDS(CredentialsFields, &UnixSocket::Credentials::pid, &UnixSocket::Credentials::uid,
                  &UnixSocket::Credentials::gid);
VYN_EXPOSE_FIELDS(AutoLockFields, &AutoLock::mHeld, &AutoLock::mLock);
VYN_EXPOSE_FIELDS(XmlCodecFields, &XmlCodec::mDocument, &XmlCodec::mSource, &XmlCodec::mCursor);
VYN_EXPOSE_FIELDS(IniConfigFields, &IniConfig::path, &IniConfig::entries);
VYN_EXPOSE_FIELDS(TimerWrapperFields, &TimerWrapper::mTimer, &TimerWrapper::mArg,
                  &TimerWrapper::mCount, &TimerWrapper::mInterval, &TimerWrapper::mExpire,
                  &TimerWrapper::mId);
VYN_EXPOSE_FIELDS(LogMessageFields, &logging::LogMessage::file, &logging::LogMessage::function,
                  &logging::LogMessage::tag, &logging::LogMessage::line,
                  &logging::LogMessage::fatal, &logging::LogMessage::enabled,
                  &logging::LogMessage::level);

namespace {

bool isInOrder(const Offsets& offsets) {
    return std::adjacent_find(offsets.begin(), offsets.end(), std::greater_equal<>()) ==
           offsets.end();
}

void expectLayout(const Offsets& offsets, const Offsets& onDevice) {
    EXPECT_TRUE(isInOrder(offsets));
    if (kHasWordsOfTheDevice) {
        EXPECT_EQ(offsets, onDevice);
    }
}

template <typename Record>
constexpr bool hasWords(size_t count) {
    return !kHasWordsOfTheDevice || sizeof(Record) == count * 4;
}

constexpr int kString = sizeof(std::string);
constexpr size_t kStringWords = sizeof(std::string) / 4;
constexpr size_t kMapWords = sizeof(std::map<int, int>) / 4;
constexpr size_t kLockWords = sizeof(pthread_mutex_t) / 4;

TEST(RecordLayout, OfTheLoop) {
    static_assert(hasWords<Message>(8));
    expectLayout(offsetsOf(MessageFields()), {0, 4, 8, 12, 16, 20, 24, 28});
    static_assert(hasWords<Connector>(1));
    static_assert(hasWords<Connector::Executor>(2));
    expectLayout(offsetsOf(ExecutorFields()), {4});
    static_assert(hasWords<Message::Callback>(1));
    static_assert(hasWords<Timer>(1));
    EXPECT_TRUE(isInOrder(offsetsOf(TimerWrapperFields())));
    static_assert(hasWords<Diagnoser>(4));
    expectLayout(offsetsOf(DiagnoserFields()), {0, 4, 8, 12});
    expectLayout(offsetsOf(DiagnoserRecordFields()), {0, 8});
}

TEST(RecordLayout, OfWorkersAndWhatAnApplicationPlugsIntoThem) {
    static_assert(hasWords<WriteNode>(3));
    expectLayout(offsetsOf(WriteNodeFields()), {0, 4, 8});
    static_assert(hasWords<Worker>(14 + kLockWords));
    expectLayout(offsetsOf(WorkerFields()), {4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 44, 56});
    static_assert(hasWords<Command>(1));
    static_assert(hasWords<Parser::PostListener>(1));
    static_assert(hasWords<Parser>(2));
    expectLayout(offsetsOf(ParserFields()), {4});
    static_assert(hasWords<Authenticator>(2));
    expectLayout(offsetsOf(AuthenticatorFields()), {4});
}

TEST(RecordLayout, OfDevices) {
    static_assert(hasWords<Device>(2));
    static_assert(hasWords<BaseDevice>(2));
    expectLayout(offsetsOf(DeviceFields()), {4});
    static_assert(hasWords<ConsoleDevice>(2));
    static_assert(hasWords<NetDevice>(19));
    expectLayout(offsetsOf(NetDeviceFields()), {8});
    static_assert(sizeof(ListenerDevice) == sizeof(NetDevice));
    static_assert(hasWords<UnixDevice>(4));
    expectLayout(offsetsOf(UnixDeviceFields()), {8});
    static_assert(sizeof(UnixListenerDevice) == sizeof(UnixDevice));
    // Behind the device lies its second base, the callback.
    static_assert(hasWords<FunctionDevice>(14 + kLockWords));
    expectLayout(offsetsOf(FunctionDeviceFields()), {12, 16, 20});
    static_assert(hasWords<InotifyDevice>(3 + kStringWords));
    expectLayout(offsetsOf(InotifyDeviceFields()), {8, 12});
    static_assert(hasWords<RtmgrDevice>(3));
    expectLayout(offsetsOf(RtmgrDeviceFields()), {8});
}

TEST(RecordLayout, OfSocketsAndTheNetwork) {
    static_assert(hasWords<SocketBase>(1));
    static_assert(hasWords<SocketAddress>(7));
    static_assert(hasWords<Socket>(17));
    static_assert(hasWords<UnixSocket>(2));
    static_assert(hasWords<UnixSocket::Credentials>(3));
    expectLayout(offsetsOf(CredentialsFields()), {0, 4, 8});
    static_assert(hasWords<helper::InterfaceAddress>(kStringWords + 1));
    expectLayout(offsetsOf(AddressFields()), {0, kString});
    static_assert(hasWords<helper::NetworkDevice>(2 * kStringWords + 8));
    expectLayout(offsetsOf(NetworkFields()), {0, kString, kString + 4, kString + 5, kString + 8,
                                              2 * kString + 8, 2 * kString + 20});
}

TEST(RecordLayout, OfLocksAndThreads) {
    static_assert(hasWords<Lock>(kLockWords));
    static_assert(hasWords<AutoLock>(2));
    expectLayout(offsetsOf(AutoLockFields()), {0, 4});
    static_assert(hasWords<Condition>(1));
    static_assert(hasWords<PipeWaiter>(2));
    static_assert(hasWords<Tls>(1));
    static_assert(hasWords<ThreadPool::Task>(2));
    expectLayout(offsetsOf(TaskFields()), {4});
    static_assert(hasWords<ThreadPool>(9 + kMapWords));
    expectLayout(offsetsOf(ThreadPoolFields()), {0, 4, 8, 12, 16, 28});
}

TEST(RecordLayout, OfData) {
    static_assert(hasWords<Buffer>(5));
    expectLayout(offsetsOf(BufferFields()), {0, 12, 16});
    static_assert(hasWords<Archive>(1));
    static_assert(hasWords<Serializer>(1));
    static_assert(hasWords<XmlCodec>(7));
    expectLayout(offsetsOf(XmlCodecFields()), {0, 4, 24});
    static_assert(hasWords<XmlDocument>(1));
    static_assert(hasWords<IniConfig>(kStringWords + kMapWords));
    expectLayout(offsetsOf(IniConfigFields()), {0, kString});
}

TEST(RecordLayout, OfLogMessages) {
    Offsets offsets = offsetsOf(LogMessageFields());
    const std::ptrdiff_t behindStream = offsets.front();
    for (std::ptrdiff_t& offset : offsets) offset -= behindStream;
    const int line = 3 * kString;
    EXPECT_EQ(offsets, (Offsets{0, kString, 2 * kString, line, line + 4, line + 5, line + 8}));
    static_assert(
        hasWords<logging::LogMessage>(sizeof(std::ostringstream) / 4 + 3 * kStringWords + 3));
    static_assert(hasWords<logging::LogPrinter>(1));
    static_assert(hasWords<logging::ScopeTracer>(8));
    static_assert(hasWords<logging::TimerScopeTracer>(8));
}

}  // namespace
}  // namespace vyn::testing
