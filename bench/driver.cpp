// What the tool's driver and the library cost over the bare operations. The operations, and what
// they are found by, are this program's own: it defines the host's functions anew, and those of a
// program go before those of its libraries.
#include <vreldr/checker.h>
#include <vreldr/operation.h>
#include <vreldr/plan.h>
#include <vreldr/report.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "action/group_action.h"
#include "bench_main.h"
#include "measure.h"
#include "output/console.h"

namespace {

std::chrono::milliseconds operationTime{0};

constexpr char kUsage[] =
    R"(Usage: ./run bench driver [--benchmark_filter=REGEX] [--benchmark_out=FILE.json] [...]

The options are those of Google Benchmark. Exits with 0 unless a benchmark could not run.

How it is counted: a sync of a group whose operations do nothing but sleep, by the tool's precheck
and driver and the library; the raw side runs the same operations bare. Both run in turn, once per
round; the ratio is the median of the rounds' ratios.
)";

}  // namespace

namespace VrelDR {

namespace Operation {
bool PlanSync::Run(bool checkOnly) {
  if (!checkOnly) std::this_thread::sleep_for(operationTime);
  return true;
}
}  // namespace Operation

namespace Checker {
bool PlanSyncChecker::Run(bool /*checkOnly*/) {
  return true;
}
}  // namespace Checker

namespace Utils {
bool SelectPlans(DRProtectedTargetType /*type*/, const std::string& targetId,
                 std::vector<DRPlan>& plans) {
  DRPlan plan;
  plan.SetPlanId("plan of " + targetId);
  plan.SetProtectedTargetId(targetId);
  plan.SetStatus(kPlanNormal);
  plans.push_back(plan);
  return true;
}
}  // namespace Utils

bool Reporter::ReadReport(Report& report) const {
  report.FromJson(Json::Value(Json::objectValue));
  return true;
}

}  // namespace VrelDR

namespace {

bool Bare(const drgroupctl::Group& group) {
  for (const VrelDR::Target& target : group.targets) {
    std::vector<VrelDR::DRPlan> plans;
    VrelDR::Utils::SelectPlans(VrelDR::kTargetLun, target.GetId(), plans);
    if (!VrelDR::Operation::PlanSync(plans.front().GetPlanId(), VrelDR::DataSyncParam())
             .Run(false)) {
      return false;
    }
  }
  return true;
}

bool Driven(const drgroupctl::Group& group) {
  const drgroupctl::Arguments args;
  const drgroupctl::Prepared prepared = drgroupctl::PrepareOnGroup("sync", group);
  drgroupctl::CheckFirst(prepared, args);
  return drgroupctl::CountDone(drgroupctl::Run(prepared, args)) == group.targets.size();
}

void Register(int targets, int milliseconds) {
  drgroupctl::Group group{"g", "", {}};
  for (int i = 0; i < targets; ++i) {
    group.targets.emplace_back("target-" + std::to_string(i), VrelDR::kTargetLun);
  }
  benchmark::RegisterBenchmark(
      ("sync of " + std::to_string(targets) + " targets, " + std::to_string(milliseconds) +
       " ms each, us")
          .c_str(),
      [group, milliseconds](benchmark::State& state) {
        operationTime = std::chrono::milliseconds(milliseconds);
        const drgroupctl::StderrCapture noProgress;  // it is made all the same
        bench::MeasureTime(state, {[&] { return Driven(group); }, [&] { return Bare(group); }},
                           1.05);
      })
      ->UseManualTime()
      ->Iterations(7);
}

}  // namespace

int main(int argc, char** argv) {
  return bench::RunMain(
      argc, argv, [] { std::fputs(kUsage, stdout); },
      [](const std::filesystem::path&) {
        for (const int targets : {1, 16, 64}) {
          for (const int milliseconds : {10, 50}) Register(targets, milliseconds);
        }
        return bench::RunRegistered();
      });
}
