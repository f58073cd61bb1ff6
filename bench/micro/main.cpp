// SPDX-License-Identifier: Apache-2.0

#include "micro/micro.h"

#include <vyn/logging.h>

#include <string>

#include "support/bench.h"

namespace bench {

namespace {

std::vector<Micro> allMicros() {
    std::vector<Micro> micros;
    for (const auto& some : {dataMicros(), logMicros(), loopMicros()}) {
        micros.insert(micros.end(), some.begin(), some.end());
    }
    return micros;
}

// Prints a run the way all programs do that scripts/bench calls.
class FigureReporter : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) fail(run.error_message);
            report("time", run.GetAdjustedCPUTime(), "ns");
        }
    }
};

Contest contest(const Micro& micro) {
    return {micro.name, "ours", [micro] {
                benchmark::RegisterBenchmark(micro.name, micro.run);
                FigureReporter reporter;
                benchmark::RunSpecifiedBenchmarks(&reporter);
            }};
}

int runUnderGoogleBenchmark(int argc, char** argv) {
    for (const Micro& micro : allMicros()) benchmark::RegisterBenchmark(micro.name, micro.run);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

}  // namespace

}  // namespace bench

// Without arguments, or with those of Google Benchmark, all of them run in its own way.
int main(int argc, char** argv) {
    // What the library tells about itself would cost time and fill the screen.
    logging::setLogLevel(logging::kLevelWarning);
    const std::string first = argc < 2 ? "--benchmark" : argv[1];
    if (first.rfind("--benchmark", 0) == 0) return bench::runUnderGoogleBenchmark(argc, argv);
    std::vector<bench::Contest> contests;
    for (const bench::Micro& micro : bench::allMicros()) contests.push_back(bench::contest(micro));
    return bench::run(argc, argv, contests);
}
