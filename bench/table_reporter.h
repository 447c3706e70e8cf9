#pragma once

#include <benchmark/benchmark.h>

namespace bench {

// Prints every measurement as it comes: name, both numbers, ratio, target, whether it is reached.
class TableReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  bool HasFailed() const { return failed_; }

 private:
  bool failed_ = false;
  int missed_ = 0;
};

}  // namespace bench
