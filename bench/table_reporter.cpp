#include "table_reporter.h"

#include <cstdio>

namespace bench {

bool TableReporter::ReportContext(const Context&) {
  std::printf("%-46s %12s %12s %7s %7s\n", "", "ours", "raw", "ratio", "target");
  std::fflush(stdout);
  return true;
}

void TableReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type == Run::RT_Aggregate) continue;  // every run is a set of medians already
    const std::string& name = run.run_name.function_name;
    if (run.error_occurred) {
      failed_ = true;
      std::printf("%-46s could not run: %s\n", name.c_str(), run.error_message.c_str());
    } else {
      const auto number = [&run](const char* counter) { return run.counters.at(counter).value; };
      std::printf("%-46s %12.1f %12.1f %7.2f", name.c_str(), number("ours"), number("raw"),
                  number("ratio"));
      if (number("target") > 0) {
        const bool reached = number("ratio") <= number("target");
        if (!reached) ++missed_;
        std::printf(" %7.2f  %s", number("target"), reached ? "ok" : "MISSED");
      }
      std::printf("\n");
    }
  }
  std::fflush(stdout);
}

void TableReporter::Finalize() {
  std::printf("%s\n", failed_       ? "Some benchmarks could not run."
                      : missed_ > 0 ? "Some targets were missed."
                                    : "All targets were reached.");
}

}  // namespace bench
