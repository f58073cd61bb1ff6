#include <gtest/gtest.h>
#include <vyn/archive.h>
#include <vyn/authenticator.h>
#include <vyn/buffer.h>
#include <vyn/condition.h>
#include <vyn/diagnoser.h>
#include <vyn/function_device.h>
#include <vyn/ini_config.h>
#include <vyn/inotify_device.h>
#include <vyn/lock.h>
#include <vyn/logging.h>
#include <vyn/message.h>
#include <vyn/net_device.h>
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

#include "connector/timer_wrapper.h"
#include "support/record_layout.h"

// Programs reach into the records of the library, and derive from its classes: where a field lies
// is part of the interface. New fields may only come behind the last.

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

TEST(RecordLayout, OfTheLoop) {
    static_assert(hasWords<Message>(8));
    expectLayout(offsetsOf(MessageFields()), {0, 4, 8, 12, 16, 20, 24, 28});
    static_assert(hasWords<Connector>(1));
    static_assert(hasWords<Connector::Executor>(2));
    expectLayout(offsetsOf(ExecutorFields()), {4});
    static_assert(hasWords<Timer>(1));
    EXPECT_TRUE(isInOrder(offsetsOf(TimerWrapperFields())));
    expectLayout(offsetsOf(DiagnoserFields()), {0, 4, 8, 12});
}

TEST(RecordLayout, OfWorkersAndWhatAnApplicationPlugsIntoThem) {
    static_assert(hasWords<WriteNode>(3));
    expectLayout(offsetsOf(WriteNodeFields()), {0, 4, 8});
    expectLayout(offsetsOf(WorkerFields()), {4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 44, 56});
    static_assert(hasWords<Parser>(2));
    expectLayout(offsetsOf(ParserFields()), {4});
    static_assert(hasWords<Authenticator>(2));
    expectLayout(offsetsOf(AuthenticatorFields()), {4});
}

TEST(RecordLayout, OfDevices) {
    static_assert(hasWords<Device>(2));
    static_assert(hasWords<BaseDevice>(2));
    expectLayout(offsetsOf(DeviceFields()), {4});
    expectLayout(offsetsOf(NetDeviceFields()), {8});
    static_assert(sizeof(ListenerDevice) == sizeof(NetDevice));
    expectLayout(offsetsOf(UnixDeviceFields()), {8});
    static_assert(sizeof(UnixListenerDevice) == sizeof(UnixDevice));
    // Behind the device lies its second base, the callback.
    expectLayout(offsetsOf(FunctionDeviceFields()), {12, 16, 20});
    expectLayout(offsetsOf(InotifyDeviceFields()), {8, 12});
    expectLayout(offsetsOf(RtmgrDeviceFields()), {8});
}

TEST(RecordLayout, OfLocksAndThreads) {
    expectLayout(offsetsOf(AutoLockFields()), {0, 4});
    static_assert(hasWords<Condition>(1));
    static_assert(hasWords<PipeWaiter>(2));
    static_assert(hasWords<Tls>(1));
    static_assert(hasWords<ThreadPool::Task>(2));
    expectLayout(offsetsOf(TaskFields()), {4});
    expectLayout(offsetsOf(ThreadPoolFields()), {0, 4, 8, 12, 16, 28});
}

TEST(RecordLayout, OfData) {
    static_assert(hasWords<Buffer>(5));
    expectLayout(offsetsOf(BufferFields()), {0, 12, 16});
    static_assert(hasWords<Archive>(1));
    static_assert(hasWords<Serializer>(1));
    expectLayout(offsetsOf(XmlCodecFields()), {0, 4, 24});
    static_assert(hasWords<XmlDocument>(1));
    expectLayout(offsetsOf(IniConfigFields()), {0, kString});
}

TEST(RecordLayout, OfLogMessages) {
    Offsets offsets = offsetsOf(LogMessageFields());
    const std::ptrdiff_t behindStream = offsets.front();
    for (std::ptrdiff_t& offset : offsets) offset -= behindStream;
    const int line = 3 * kString;
    EXPECT_EQ(offsets, (Offsets{0, kString, 2 * kString, line, line + 4, line + 5, line + 8}));
    static_assert(hasWords<logging::LogPrinter>(1));
}

}  // namespace
}  // namespace vyn::testing
