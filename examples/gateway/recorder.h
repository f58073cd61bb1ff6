// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/function_device.h>
#include <vyn/handler.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <fstream>
#include <future>
#include <string>
#include <thread>

#include "line_parser.h"

// A worker over a function device. Writes at once, which never waits, so that nothing is queued
// when the loop ends.
struct RecorderEnd {
    explicit RecorderEnd(vyn::Connector::Executor* executor) : device(executor) {
        worker.setSelfCallFlag(true);
    }
    vyn::FunctionDevice device;
    LineParser parser;
    vyn::Worker worker{&device, &parser};
};

// The side that records: appends the lines of the one who connects to a file. Lives on its thread.
class RecorderService : public vyn::Handler {
  public:
    RecorderService(vyn::Connector& loop, const std::string& path)
        : Handler(loop), mPath(path), mFile(path, std::ios::app) {
        mLoop.addWorkerLocked(&mListener.worker, this);
        mListener.device.listen("recorder");
    }
    // On the thread of the side that connects, which waits meanwhile.
    void onNewConnection(vyn::Worker*, int, void* data) override {
        mSource.device.accept(static_cast<vyn::FunctionDevice*>(data));
        mLoop.addWorkerLocked(&mSource.worker, this);
    }
    void onCommand(vyn::Worker*, vyn::Command* line) override {
        if (!mFile) openAgain();
        mFile << static_cast<Line*>(line)->text << std::endl;
        if (!mFile) VYN_LOG_ERRNO_ERROR << "can not record to " << mPath;
    }
    void onMessage(vyn::Message) override { mLoop.stop(); }

  private:
    void openAgain() {
        mFile.clear();
        mFile.close();
        mFile.open(mPath, std::ios::app);
    }

    const std::string mPath;
    std::ofstream mFile;
    RecorderEnd mListener{this};
    RecorderEnd mSource{this};
};

// The side that is used, on the loop's thread; runs the other on a thread and a loop of its own.
class Recorder : public vyn::Handler {
  public:
    Recorder(vyn::Connector& loop, const std::string& path)
        : Handler(loop),
          mThread([this, path] { serve(path); }),
          mService(mReady.get_future().get()) {
        if (!mEnd.device.connect("recorder")) VYN_LOG_ERROR << "no recorder";
    }
    ~Recorder() override {
        mService->sendMessage(vyn::Message::obtain());  // comes behind all that was recorded
        mThread.join();
    }
    void record(const std::string& text) {
        Line line(text);
        mEnd.worker.write(&line);
    }

  private:
    void serve(const std::string& path) {
        logging::setThreadName("recorder");
        vyn::Connector loop;
        RecorderService service(loop, path);
        mReady.set_value(&service);
        loop.run();
    }

    RecorderEnd mEnd{this};
    std::promise<RecorderService*> mReady;
    std::thread mThread;
    RecorderService* mService;
};
