// Measures the library beside the same work done with SQLite's C interface alone, and prints one
// table of ratios. A missed target is for the reader to judge and no error.

#include <benchmark/benchmark.h>
#include <private_namespace.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "benchmarks.h"
#include "table_reporter.h"
#include "workplace.h"

namespace {

constexpr char kUsage[] =
    R"(Usage: ./run bench [--dir=DIR] [--benchmark_filter=REGEX] [--benchmark_out=FILE.json] [...]

  --dir=DIR  where the databases are made, on the kind of disk to be measured; not under /var.
             The directory of this program unless given. Needs 400 MB; nothing stays there.

The other options are those of Google Benchmark. Exits with 0 unless a benchmark could not run.

How it is counted: both sides run in turn, once per round; the numbers are medians of all rounds, the
ratio is the median of the rounds' ratios. Every insert is open, insert, close with journal_mode
PERSIST and synchronous FULL. Creation has on the raw side the same run of the database script and
the same rows, one durable insert each. Peak memory is what one listing adds to a process of its own.
)";

int Fail(const std::string& message) {
  std::fprintf(stderr, "bench/report: %s\n", message.c_str());
  return 1;
}

int Run(const std::filesystem::path& dir) {
  std::string why;
  if (!test_support::EnterPrivateNamespace(why) || !test_support::InstallDbScript(why)) {
    return Fail(why);
  }
  bench::Workplace place(dir);
  if (place.IsInMemory()) {
    std::printf("Note: %s is in memory: a durable insert costs no disk time there.\n", dir.c_str());
  }
  bench::RegisterInsert(place);
  bench::RegisterRead(place);
  bench::RegisterList(place);
  bench::RegisterCreate(place);
  bench::RegisterRepair(place);
  bench::RegisterRename(place);
  bench::RegisterScript(place);
  bench::TableReporter reporter;
  if (benchmark::RunSpecifiedBenchmarks(&reporter) == 0)
    return Fail("no benchmark has such a name");
  return reporter.HasFailed() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string listOnce = bench::kListOnce;
  const std::string dirOption = "--dir=";
  std::filesystem::path dir = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  benchmark::Initialize(&argc, argv, [] { std::fputs(kUsage, stdout); });
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument.compare(0, listOnce.size(), listOnce) == 0) {
      return bench::ListOnce(argument.substr(listOnce.size()));
    }
    if (argument.compare(0, dirOption.size(), dirOption) != 0) {
      return Fail("unknown argument \"" + argument + "\"; --help lists what there is");
    }
    dir = argument.substr(dirOption.size());
  }
  try {
    return Run(std::filesystem::absolute(dir));
  } catch (const std::exception& error) {
    return Fail(error.what());
  }
}
