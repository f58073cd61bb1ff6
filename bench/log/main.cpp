// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vyn/logging.h>

#include "support/bench.h"
#include "support/repeat.h"

// The same line, by each contestant: filtered, written to nothing, and written to standard error,
// which leads into a file in memory. The bare call of liblog writes the text that ours hands to it.
namespace bench {

namespace {

constexpr int kNumber = 17;
const std::string kPeer = "192.168.1.20:7007";

class KeepingPrinter : public logging::LogPrinter {
  public:
    void print(const std::string& line) override { mLine = line.substr(0, line.size() - 1); }
    std::string mLine;
};

void writeLine() { VYN_LOG_INFO << "accepted connection " << kNumber << " from " << kPeer; }

// What writeLine() hands to liblog.
std::string writtenText() {
    KeepingPrinter printer;
    logging::setLoggingPrinter(&printer);
    writeLine();
    logging::setLoggingPrinter(nullptr);
    if (printer.mLine.empty()) fail("no line");
    return printer.mLine;
}

void redirectErrors() {
    const int file = memfd_create("lines", 0);
    require(file >= 0, "memfd_create");
    require(dup2(file, STDERR_FILENO) >= 0, "dup2");
    close(file);
}

void dropLine(const __android_logger_data*, const char*) {}

// Times a line, the file being emptied in front of each batch.
void measure(const std::function<void()>& line) {
    const double nanoseconds = nanosecondsEach([&line](int64_t lines) {
        require(ftruncate(STDERR_FILENO, 0) == 0, "ftruncate");
        require(lseek(STDERR_FILENO, 0, SEEK_SET) == 0, "lseek");
        for (; lines > 0; --lines) line();
    });
    report("time", nanoseconds, "ns");
}

void filteredOurs() {
    logging::setLogLevel(logging::kLevelWarning);
    report("time", nanosecondsFor(writeLine), "ns");
}

void filteredSpdlog() {
    spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger.set_level(spdlog::level::warn);
    report("time",
           nanosecondsFor([&] { logger.info("accepted connection {} from {}", kNumber, kPeer); }),
           "ns");
}

void writtenOurs() { measure(writeLine); }

void writtenLiblog() {
    const std::string text = writtenText();
    measure([&text] { __android_log_write(ANDROID_LOG_INFO, logging::kTag, text.c_str()); });
}

void writtenSpdlog(spdlog::sink_ptr sink) {
    spdlog::logger logger("bench", std::move(sink));
    logger.flush_on(spdlog::level::info);
    measure([&logger] { logger.info("accepted connection {} from {}", kNumber, kPeer); });
}

Contest toNothing(const char* contestant, void (*run)()) {
    return {"null", contestant, [run] {
                __android_log_set_logger(dropLine);
                redirectErrors();
                run();
            }};
}

Contest toFile(const char* contestant, void (*run)()) {
    return {"written", contestant, [run] {
                redirectErrors();
                run();
            }};
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    return run(argc, argv,
               {{"filtered", "ours", filteredOurs},
                {"filtered", "spdlog", filteredSpdlog},
                toNothing("ours", writtenOurs),
                toNothing("liblog", writtenLiblog),
                toNothing("spdlog",
                          [] { writtenSpdlog(std::make_shared<spdlog::sinks::null_sink_mt>()); }),
                toFile("ours", writtenOurs),
                toFile("liblog", writtenLiblog),
                toFile("spdlog",
                       [] { writtenSpdlog(std::make_shared<spdlog::sinks::stderr_sink_mt>()); })});
}
