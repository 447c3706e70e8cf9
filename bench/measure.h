#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <vector>

namespace bench {

// What the library does, and the same work done with as little as possible. Each returns whether it
// worked. `cleanUp` runs after each of them and is not measured.
struct Pair {
  std::function<bool()> ours;
  std::function<bool()> raw;
  std::function<void()> cleanUp = [] {};
};

// Runs both sides in turn, once per iteration, so that what disturbs the machine disturbs both, and
// hands the median of each in microseconds and the median of the iterations' ratios to the report.
// `target` is the ratio to reach, 0 for none. A side that does not work ends the measurement as an
// error.
void MeasureTime(benchmark::State& state, const Pair& pair, double target);

void Report(benchmark::State& state, double ours, double raw, double ratio, double target);

double Median(std::vector<double> values);

}  // namespace bench
