#include "bench_main.h"

#include <benchmark/benchmark.h>
#include <private_namespace.h>

#include <cstdio>
#include <stdexcept>

#include "table_reporter.h"

namespace bench {

int Fail(const std::string& message) {
  std::fprintf(stderr, "bench: %s\n", message.c_str());
  return 1;
}

void EnterPrivateHost() {
  std::string why;
  if (!test_support::EnterPrivateNamespace(why) || !test_support::InstallDbScript(why)) {
    throw std::runtime_error(why);
  }
}

int RunRegistered() {
  TableReporter reporter;
  if (benchmark::RunSpecifiedBenchmarks(&reporter) == 0) {
    return Fail("no benchmark has such a name");
  }
  return reporter.HasFailed() ? 1 : 0;
}

int RunMain(int argc, char** argv, void (*printUsage)(),
            const std::function<int(const std::filesystem::path& dir)>& body) {
  const std::string dirOption = "--dir=";
  std::filesystem::path dir = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  benchmark::Initialize(&argc, argv, printUsage);
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument.compare(0, dirOption.size(), dirOption) != 0) {
      return Fail("unknown argument \"" + argument + "\"; --help lists what there is");
    }
    dir = argument.substr(dirOption.size());
  }
  try {
    return body(std::filesystem::absolute(dir));
  } catch (const std::exception& error) {
    return Fail(error.what());
  }
}

}  // namespace bench
