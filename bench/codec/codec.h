// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/bench.h"

// The contests of this group, and what they have in common.
namespace bench {

std::vector<Contest> checksumContests();
std::vector<Contest> md5Contests();
std::vector<Contest> archiveContests();
std::vector<Contest> hexContests();

// The same bytes in every run, without a pattern.
std::string noise(size_t size);

// A contest whose figure is the time of one operation.
Contest timed(const std::string& caseName, const std::string& contestant,
              const std::function<double()>& nanoseconds);

}  // namespace bench
