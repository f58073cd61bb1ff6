// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <vyn/export.h>

namespace vyn {

class Worker;

// The transport end of one worker: it owns a descriptor (or several, or none), moves bytes over it
// and reports what happens on it to the worker it is attached to.
//
// Everything is called on the thread of the loop that serves the worker, but getFd(), getFds() and
// onReady() also on a thread that adds or removes the worker. A device belongs to
// whoever created it; it must outlive its worker's place in the loop, and may be deleted inside any
// callback of its worker's executor: the library touches nothing of it afterwards.
class VYN_API Device {
  public:
    virtual ~Device();

    // The name of the class, as dumps show it.
    virtual const char* getClassName();
    // The descriptor `fd` is readable or in error: take what is there and report it through
    // onData(), onDisconnected() and their like.
    virtual void onDataArrival(int fd) = 0;
    // Writes bytes to the transport. Returns how many of them were written, which may be fewer than
    // `len`, or a value below 1 on failure: what is queued is then tried again when the descriptor
    // is writable. Must not report a disconnection itself. What it writes to its own worker goes
    // behind what is queued.
    virtual int write(const void* data, int len) = 0;
    // The worker has been registered with a connector. Called once, before its first event.
    virtual void onReady();
    // The descriptor to watch, or a negative value when there are several or none. The connector's
    // workers are locked meanwhile: it may not be used in here, nor in getFds(), not even by way of
    // a worker that writes.
    virtual int getFd() = 0;
    // The descriptors to watch when getFd() is negative.
    virtual std::vector<int> getFds();
    // Ends the connection: closes the descriptor, then reports onDisconnected().
    virtual void disconnect();
    // For links that need keep-alives: how often to send one and how long a silent peer is borne,
    // in milliseconds; 0 for never.
    virtual int heartbitInterval();
    virtual int heartbitTimeout();
    // Prints the device's own fields; `operator<<` prints what stands around them.
    virtual void dump(std::ostream& os);
    // Tells the worker that the connection ended.
    virtual void onDisconnected();

    // Sets the worker to report to, which is not owned. The worker's constructor calls it.
    void attach(Worker* worker);

    // What subclasses report. Each goes to the worker, and is dropped while there is none.
    // The bytes are the worker's for the length of the call only.
    void onData(const void* data, int len);
    // `fd` is the listening descriptor; `data` depends on the device and lives for the call only.
    void onNewConnection(int fd, void* data);
    // What the executor's callbacks of these names get.
    void onNetworkChanged();
    void onFileChanged(const std::string& path, int mask);

  protected:
    // For a subclass whose getFd() or getFds() has another answer than before: the loop that serves
    // the worker, if there is one, watches what they name now.
    void descriptorsChanged();
    // For one whose descriptor stays ready although nothing can be done about it now: the loop does
    // not look at it for so many milliseconds, and serves the others.
    void restFor(int ms);

    // Who is reported to, or null.
    Worker* mWorker = nullptr;
};

// A device that reads a byte stream: every time the descriptor is readable it reads once, at most
// 2048 bytes or as many as setReadSize() says, and reports them, or a disconnection when the read
// gives nothing. What is left is read at the loop's next turn, so no connection can keep the loop
// to itself.
//
// A peer that has ended its own half of a stream is reported as disconnected too, although it could
// still read what is sent to it; but see Worker::setAllowHalfOpen().
class VYN_API BaseDevice : public Device {
  public:
    const char* getClassName() override;
    void onDataArrival(int fd) override;

    // A hook by which a subclass may open its descriptor. Returns -1 unless overridden.
    virtual int create();
    // Reads at most `len` bytes. Returns how many, 0 at the end of the stream, or a negative value
    // on failure with errno set.
    virtual int read(char* buf, int len) = 0;

    // Reads up to this many bytes at a time, 1 to kMostReadSize, into a buffer that belongs to the
    // thread: fewer calls for large data. Also puts a bound of 16 MiB on the bytes that may wait
    // to be written, if the worker has no such bound: what was read at once may be answered with
    // a lot. False for another number.
    bool setReadSize(int bytes);
    static constexpr int kMostReadSize = 1 << 20;

  protected:
    // The two halves of onDataArrival(). Reads once and reports the bytes; returns what read() did.
    // After a value above 0 the device may be gone.
    int readAndReport();
    // Logs the end, for what read() returned, and reports the disconnection.
    void reportEnd(int count);

  private:
    int readAndReport(int size);
    int readIntoZeros();
};

// "ClassName(0x...): {fd=7, ...}", or "Device(NULL)".
VYN_API std::ostream& operator<<(std::ostream& os, Device* device);

}  // namespace vyn
