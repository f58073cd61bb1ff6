// SPDX-License-Identifier: Apache-2.0

// own_device [TERMINAL]    a device of the application's own, here a serial line, in a loop like
// any other. Without a terminal it makes one, and is itself what hangs at the other end. Prints:
//
//     the line answers: 21 degrees
//     the line is gone
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>
#include <vyn/config.h>
#include <vyn/device.h>
#include <vyn/handler.h>

#include <cstdlib>
#include <iostream>
#include <string>

// A terminal as a line for bytes. Whatever has a descriptor that can be waited for is done like
// this: it says which descriptor, how to read and to write, and what it is to end.
class SerialDevice : public vyn::BaseDevice {
  public:
    explicit SerialDevice(const std::string& terminal)
        : mFd(open(terminal.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
        termios settings{};
        if (tcgetattr(mFd, &settings) != 0) return;
        cfmakeraw(&settings);
        cfsetspeed(&settings, B115200);
        tcsetattr(mFd, TCSANOW, &settings);
    }
    ~SerialDevice() override { closeLine(); }
    SerialDevice(const SerialDevice&) = delete;
    SerialDevice& operator=(const SerialDevice&) = delete;

    const char* getClassName() override { return "SerialDevice"; }
    int getFd() override { return mFd; }
    int read(char* buffer, int len) override {
        return static_cast<int>(::read(mFd, buffer, static_cast<size_t>(len)));
    }
    // Where it takes less, or nothing for now (errno is EAGAIN), the rest is tried again.
    int write(const void* data, int len) override {
        return static_cast<int>(::write(mFd, data, static_cast<size_t>(len)));
    }
    void disconnect() override {
        closeLine();
        onDisconnected();
    }
    void dump(std::ostream& os) override { os << "serial line"; }

  private:
    void closeLine() {
        if (mFd >= 0) close(mFd);
        mFd = -1;
    }

    int mFd;
};

// Asks for the temperature.
class Thermometer : public vyn::Handler {
  public:
    Thermometer(vyn::Connector& loop, const std::string& terminal)
        : Handler(loop), mDevice(terminal) {
        mLoop.addWorkerLocked(&mWorker, this);
        mWorker.writeRaw("T?", 2);
    }
    ~Thermometer() override { mLoop.removeWorkerLocked(&mWorker); }
    void onDisconnected(vyn::Worker*) override {
        std::cout << "the line is gone" << std::endl;
        mLoop.stop();
    }
    const std::string& answer() const { return mAnswer; }

  private:
    struct Line : vyn::Worker {
        explicit Line(Thermometer& itsOwner)
            : Worker(&itsOwner.mDevice, nullptr), owner(itsOwner) {}
        bool handledBeforeParser(const void* data, int len) override {
            owner.mAnswer.append(static_cast<const char*>(data), static_cast<size_t>(len));
            if (owner.mAnswer.back() != '\n') return true;  // there is more to come
            std::cout << "the line answers: " << owner.mAnswer << std::flush;
            owner.mDevice.disconnect();
            return true;
        }
        Thermometer& owner;
    };

    std::string mAnswer;
    SerialDevice mDevice;
    Line mWorker{*this};
};

// What hangs at the other end of a terminal that was made for it: the terminal's own other end,
// with a worker that answers. It shows a second device; posix_openpt() gives its descriptor.
class Probe : public vyn::Handler {
  public:
    explicit Probe(vyn::Connector& loop) : Handler(loop) { mLoop.addWorkerLocked(&mWorker, this); }
    ~Probe() override { mLoop.removeWorkerLocked(&mWorker); }
    std::string terminal() { return ptsname(mDevice.getFd()); }
    void onDisconnected(vyn::Worker* worker) override { mLoop.removeWorkerLocked(worker); }

  private:
    struct Controller : SerialDevice {
        Controller() : SerialDevice("/dev/ptmx") { grantpt(getFd()), unlockpt(getFd()); }
        const char* getClassName() override { return "Controller"; }
    };
    struct Line : vyn::Worker {
        using Worker::Worker;
        bool handledBeforeParser(const void*, int) override { return writeRaw("21 degrees\n", 11); }
    };

    Controller mDevice;
    Line mWorker{&mDevice, nullptr};
};

int main(int argc, char** argv) {
    vyn::config::setAsyncWritting(true);
    vyn::Connector loop;
    Probe probe(loop);
    Thermometer thermometer(loop, argc > 1 ? argv[1] : probe.terminal());
    loop.run();
    return thermometer.answer().empty() ? 1 : 0;
}
