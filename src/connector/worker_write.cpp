#include <vyn/authenticator.h>
#include <vyn/config.h>
#include <vyn/device.h>
#include <vyn/helper.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "connector/parser_call.h"

namespace vyn {

namespace {

// A peer with more writes waiting than this does not read.
constexpr int kMostPendingWrites = 100;

// In one block with its bytes. Null when there is no memory.
WriteNode* newNode(const void* data, int len) {
    const size_t size = len > 0 ? static_cast<size_t>(len) : 0;
    void* const block = std::malloc(sizeof(WriteNode) + size);
    if (block == nullptr) return nullptr;
    char* const bytes = static_cast<char*>(block) + sizeof(WriteNode);
    if (size > 0) std::memcpy(bytes, data, size);
    return new (block) WriteNode{bytes, 0, static_cast<int>(size)};
}

void deleteNode(WriteNode* node) { std::free(node); }

}  // namespace

Worker::~Worker() {
    for (WriteNode* node : mWriteQueue) deleteNode(node);
}

void Worker::onPacketCreated(const void* data, int len) {
    if (checkValid()) writeRaw(data, len);
}

void Worker::write(Command* cmd) {
    if (mAuthenticator != nullptr && !mAuthenticator->pass()) {
        VYN_LOG_WARNING << "not authenticated";
        return;
    }
    if (!checkValid()) return;
    mLastWriteTick.store(helper::mtick(), std::memory_order_relaxed);
    onBeforeCreatePacket(cmd);
    VYN_CHECK_OR_RETURN(mParser != NULL);
    ParserCall call(mParser, this);
    mParser->setListener(this);
    mParser->createPacket(cmd);
}

void Worker::writeRaw(const void* data, int len) {
    if (!checkValid()) return;
    if (mSelfCall) {
        const int ret = instantWrite(data, len);
        VYN_LOG_DEBUG << "write len " << len << " ret len " << ret << " for self call";
        return;
    }
    if (config::isAsyncWritting()) {
        queueWritting(data, len);
        return;
    }
    const int ret = instantWrite(data, len);
    if (ret < len) VYN_LOG_ERRNO_ERROR << "ret < len. " << ret << " bytes written.";
}

int Worker::instantWrite(const void* data, int len) {
    if (mDevice == nullptr) {
        VYN_LOG_WARNING << "mDevice is null";
        return len;
    }
    return mDevice->write(data, len);
}

void Worker::queueWritting(const void* data, int len) {
    if (!checkValid()) return;
    const int pending = enqueue(data, len);
    // Without a connector the writes wait until the worker is added to one.
    Connector* connector = getConnector();
    if (connector != nullptr) connector->queueWrite(this);
    if (pending <= kMostPendingWrites) return;

    // The caller may be in the middle of something, such as parsing, that could not bear the worker
    // being deleted, or on another thread than the loop: so the loop gets it, once.
    if (!mValid.exchange(false, std::memory_order_relaxed)) return;
    if (connector == nullptr || !connector->queueOverflow(this)) onWriteQueueOverflow();
}

bool Worker::performWrite() {
    if (!checkValid()) return false;
    AutoLock lock(mWriteLock);
    while (!mWriteQueue.empty()) {
        WriteNode* node = mWriteQueue.front();
        if (!writeOnce(*node)) return false;
        mWriteQueue.pop_front();
        deleteNode(node);
    }
    return true;
}

bool Worker::hasWrittingData() {
    AutoLock lock(mWriteLock);
    return !mWriteQueue.empty();
}

// Returns how many writes are waiting now.
int Worker::enqueue(const void* data, int len) {
    WriteNode* node = newNode(data, len);
    if (node == nullptr) {
        VYN_LOG_ERROR << "out of memory, " << len << " bytes are not written by worker "
                      << static_cast<const void*>(this);
    }
    AutoLock lock(mWriteLock);
    if (node != nullptr) mWriteQueue.push_back(node);
    return static_cast<int>(mWriteQueue.size());
}

// True when the node is written to its end.
bool Worker::writeOnce(WriteNode& node) {
    const int remaining = node.size - node.offset;
    if (remaining < 1) return true;  // an empty write; no device could take it
    const int ret = instantWrite(static_cast<const char*>(node.data) + node.offset, remaining);
    if (ret < 1) return false;
    node.offset += ret;
    return node.offset >= node.size;
}

void Worker::onWriteQueueOverflow() {
    size_t pending = 0;
    {
        AutoLock lock(mWriteLock);
        pending = mWriteQueue.size();
    }
    VYN_LOG_ERROR << "\033[1;31mAlert! \033[mclient blocks " << pending
                  << " writting requests, disconnect it. " << this;
    onDisconnected();
}

}  // namespace vyn
