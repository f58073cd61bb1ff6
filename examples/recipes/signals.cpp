// SPDX-License-Identifier: Apache-2.0

// Signals as events of the loop: SIGHUP has the service read its settings again, SIGCHLD tells how
// programs ended that it started, SIGTERM and SIGINT end it. Here it sends them to itself. Prints:
//
//     read the settings again
//     the program ended with status 3
//     stop
#include <sys/wait.h>
#include <unistd.h>
#include <vyn/handler.h>
#include <vyn/signal_device.h>

#include <csignal>
#include <iostream>

class Service : public vyn::Handler {
  public:
    // Before any thread is started: threads inherit which signals are blocked.
    explicit Service(vyn::Connector& loop)
        : Handler(loop), mSignals({SIGHUP, SIGCHLD, SIGTERM, SIGINT}, [this](const auto& signal) {
              onSignal(signal);
          }) {
        mLoop.addWorkerLocked(&mWorker, this);
    }
    ~Service() override { mLoop.removeWorkerLocked(&mWorker); }

    int status() const { return mStatus; }

  private:
    void onSignal(const vyn::SignalDevice::Signal& signal) {
        switch (signal.number) {
            case SIGHUP:
                std::cout << "read the settings again" << std::endl;
                start("exit 3");
                break;
            case SIGCHLD:
                reap();
                kill(getpid(), SIGTERM);
                break;
            default:
                std::cout << "stop" << std::endl;
                mLoop.stop();
        }
    }
    // A program inherits the blocked signals, and few unblock them.
    static void start(const char* command) {
        if (fork() != 0) return;
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_UNBLOCK, &all, nullptr);
        execl("/bin/sh", "sh", "-c", command, nullptr);
        _exit(127);
    }
    // Several children that end at once may be one signal.
    void reap() {
        int status = 0;
        while (waitpid(-1, &status, WNOHANG) > 0) {
            mStatus = WEXITSTATUS(status);
            std::cout << "the program ended with status " << mStatus << std::endl;
        }
    }

    int mStatus = -1;
    vyn::SignalDevice mSignals;
    vyn::Worker mWorker{&mSignals, nullptr};
};

int main() {
    vyn::Connector loop;
    Service service(loop);
    kill(getpid(), SIGHUP);
    loop.run();
    return service.status() == 3 ? 0 : 1;
}
