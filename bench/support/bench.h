// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>
#include <vector>

// What every benchmark program has in common. One run of a program is one measurement:
//
//     bench_post --list                               the cases and contestants, a line for each
//     bench_post --cores                              how far the two cores are apart
//     bench_post --case=1-thread --contestant=asio    measures, and prints a line for each figure
//
// The lines are "case<TAB>contestant" and "metric<TAB>value<TAB>unit". scripts/bench runs the
// programs over and over, the contestants of a case in turn, and makes the tables.
namespace bench {

// What one contestant does in one case.
struct Contest {
    std::string caseName;
    std::string contestant;
    std::function<void()> measure;  // prints its figures with report()
};

// To be returned by main(). Lists, or runs the contest that the arguments name; the order of
// `contests` is that of the tables.
int run(int argc, char** argv, const std::vector<Contest>& contests);

// Prints one figure. Units: "1/s", "ns", "us", "ms", "B", "%".
void report(const char* metric, double value, const char* unit);

// Ends the program with a message, for a measurement that is not to be had.
[[noreturn]] void fail(const std::string& why);
// Ends it so, with errno, unless `condition` holds.
void require(bool condition, const char* what);

// Keeps the compiler from leaving out what computes `value`.
template <typename Value>
void keep(const Value& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

}  // namespace bench
