// Measures the library beside the same work done with SQLite's C interface alone, and prints one
// table of ratios. A missed target is for the reader to judge and no error.

#include <cstdio>
#include <filesystem>
#include <string>

#include "bench_main.h"
#include "benchmarks.h"
#include "workplace.h"

namespace {

constexpr char kUsage[] =
    R"(Usage: ./run bench catalogue [--dir=DIR] [--benchmark_filter=REGEX] [--benchmark_out=FILE.json] [...]

  --dir=DIR  where the databases are made, on the kind of disk to be measured; not under /var.
             The directory of this program unless given. Needs 400 MB; nothing stays there.

The other options are those of Google Benchmark. Exits with 0 unless a benchmark could not run.

How it is counted: both sides run in turn, once per round; the numbers are medians of all rounds, the
ratio is the median of the rounds' ratios. Every insert is open, insert, close with journal_mode
PERSIST and synchronous FULL. Creation has on the raw side the same run of the database script and
the same rows, one durable insert each; deletion the same statements, each in an opening of its own.
Peak memory is what one listing adds to a process of its own.
)";

int Run(const std::filesystem::path& dir) {
  bench::EnterPrivateHost();
  bench::Workplace place(dir);
  if (place.IsInMemory()) {
    std::printf("Note: %s is in memory: a durable insert costs no disk time there.\n", dir.c_str());
  }
  bench::RegisterInsert(place);
  bench::RegisterRead(place);
  bench::RegisterList(place);
  bench::RegisterCreate(place);
  bench::RegisterDelete(place);
  bench::RegisterRepair(place);
  bench::RegisterRename(place);
  bench::RegisterScript(place);
  return bench::RunRegistered();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string listOnce = bench::kListOnce;
  const std::string first = argc > 1 ? argv[1] : "";
  if (first.compare(0, listOnce.size(), listOnce) == 0) {
    return bench::ListOnce(first.substr(listOnce.size()));
  }
  return bench::RunMain(
      argc, argv, [] { std::fputs(kUsage, stdout); }, Run);
}
