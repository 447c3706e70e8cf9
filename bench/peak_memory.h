#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace bench {

// By how many KiB this process's memory was larger at its peak since `since`, a value that
// CurrentMemory gave, with the peak never having been higher before that.
long CurrentMemory();
long PeakSince(long since);

// Runs this program anew with one argument and returns the number that it prints, negative on a
// failure. A process of its own has a heap of its own: nothing freed before hides what is used.
long NumberFromSelf(const std::string& argument);

// Reports the KiB that `what` takes in a process that is forked off for it, beside `mostKiB`.
void MeasurePeak(benchmark::State& state, const std::function<bool()>& what, long mostKiB);

}  // namespace bench
