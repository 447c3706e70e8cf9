#include "measure.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace bench {

namespace {

// Microseconds that `side` takes; negative when it did not work.
double Time(const std::function<bool()>& side) {
  const auto start = std::chrono::steady_clock::now();
  const bool worked = side();
  const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
  return worked ? took.count() : -1;
}

}  // namespace

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void Report(benchmark::State& state, double ours, double raw, double ratio, double target) {
  state.counters["ours"] = ours;
  state.counters["raw"] = raw;
  state.counters["ratio"] = ratio;
  state.counters["target"] = target;
}

void MeasureTime(benchmark::State& state, const Pair& pair, double target) {
  struct Side {
    const char* name;
    const std::function<bool()>& run;
    std::vector<double> times;
  };
  Side sides[] = {{"the library failed", pair.ours, {}}, {"the raw side failed", pair.raw, {}}};
  // Neither side always goes first: the second finds the caches warmer.
  std::size_t first = 0;
  for (auto iteration : state) {
    (void)iteration;
    for (std::size_t i : {first, 1 - first}) {
      const double took = Time(sides[i].run);
      pair.cleanUp();
      if (took < 0) {
        state.SkipWithError(sides[i].name);
        return;
      }
      sides[i].times.push_back(took);
    }
    first = 1 - first;
    state.SetIterationTime(sides[0].times.back() * 1e-6);
  }
  std::vector<double> ratios;
  for (std::size_t i = 0; i < sides[0].times.size(); ++i) {
    ratios.push_back(sides[0].times[i] / sides[1].times[i]);
  }
  Report(state, Median(sides[0].times), Median(sides[1].times), Median(ratios), target);
}

}  // namespace bench
