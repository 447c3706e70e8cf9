#include "rig.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "content.h"
#include "tree.h"

namespace torture {

namespace fs = std::filesystem;

namespace {

long Asked(const char* name, long otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr || *text == '\0' ? otherwise : std::atol(text);
}

std::string OneLine(const std::string& text) {
  std::string line = text.substr(0, text.find_last_not_of('\n') + 1);
  for (char& each : line) each = each == '\n' ? '|' : each;
  return line;
}

bool IsThere(const Step& step, const Sight& before, const Sight& now) {
  return step.reached(before, now).empty();
}

// What was before, what a cut shows, and what was made of it, for whoever looks for a fault.
void Tell(const Moment& moment, const Sight& seen, const std::string& said, const Sight& now) {
  const std::pair<const char*, const Sight*> sights[] = {
      {"before", &moment.before}, {"seen", &seen}, {"now", &now}};
  for (const auto& [name, sight] : sights) {
    for (const auto& [key, value] : sight->facts) {
      std::cout << name << ": " << key << ": " << value << "\n";
    }
  }
  std::cout << said << std::endl;
}

}  // namespace

unsigned AskedSeed() {
  static const auto seed = static_cast<unsigned>(Asked("TORTURE_SEED", 1));
  return seed;
}

int AskedCount(int ofShortRun) {
  return static_cast<int>(Asked("TORTURE_COUNT", ofShortRun));
}

std::chrono::seconds AskedTime(int ofShortRun) {
  return std::chrono::seconds(Asked("TORTURE_SECONDS", ofShortRun));
}

std::string NameOfPlace(const testing::TestParamInfo<Place>& place) {
  return NameOf(place.param.first) + "_" + place.param.second;
}

void TortureTest::SetUp() {
  end_ = std::chrono::steady_clock::time_point::max();
  std::cout << "TORTURE_SEED=" << AskedSeed() << std::endl;
  // Every test goes a way of its own.
  const std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
  std::seed_seq seed{static_cast<std::size_t>(AskedSeed()), std::hash<std::string>()(test)};
  random_.seed(seed);
  if (geteuid() != 0) GTEST_SKIP() << "NOT RUN: cutting the power of loop images needs root";
  char name[] = "/var/torture-XXXXXX";
  ASSERT_NE(mkdtemp(name), nullptr);
  root_ = name;
  fs::create_directory(Imports());
  std::string why;
  disks_ = std::make_unique<Disks>(root_, GetParam().first, GetParam().second, why);
  // Root of a container may lack the devices.
  if (!why.empty() && access("/dev/loop-control", W_OK) != 0) GTEST_SKIP() << "NOT RUN: " << why;
  ASSERT_EQ(why, "");
  std::string volumes;
  for (const std::string& each : disks_->Volumes()) {
    volumes += std::string(volumes.empty() ? "" : ", ") + R"({"name": ")" + each +
               R"(", "engine": "local", "path": ")" + disks_->VolumePath(each) + R"("})";
  }
  host_test::WriteFile(root_ + "/config.json", R"({"state_dir": ")" + disks_->StateDir() +
                                                   R"(", "volumes": [)" + volumes + "]}");
  setenv("VRELDR_CONFIG", (root_ + "/config.json").c_str(), 1);
}

void TortureTest::TearDown() {
  disks_.reset();
  unsetenv("VRELDR_CONFIG");
  std::error_code error;
  if (!root_.empty()) fs::remove_all(root_, error);
}

void TortureTest::StartHost() {
  Do(disks_->Renew());
  unsynced_.clear();
  for (const Step& step : {CreateTarget("a", "v1", "share"), CreateTarget("b", "v1", "lun"),
                           CreateGroup("g", {"a", "b"})}) {
    const Sight before = See();
    const Sight after = Finish(step, before, "a fresh host");
    Cut({"", "acknowledged", step, true, before, after, {}});
  }
}

std::string TortureTest::WriteAll(Sight& sight, bool isSynced) {
  const std::string group = MainGroupOf(sight);
  if (group.empty()) return "";
  for (const std::string& each : sight.groups.at(group)) {
    const auto plan = sight.plans.find(each);
    const std::string id = plan == sight.plans.end() ? each : plan->second.working;
    const auto target = sight.targets.find(id);
    if (target == sight.targets.end()) return "target " + id + " is not there";
    std::string why = WriteVersion(target->second.path, ++version_);
    if (why.empty() && isSynced) why = disks_->Sync(target->second.volume);
    if (!why.empty()) return why;
    sight.Set(id, version_);
    if (isSynced) {
      unsynced_.erase(id);
    } else {
      unsynced_.insert(id);
    }
  }
  return "";
}

std::string TortureTest::Run(const Step& step, const Sight& before, Sight& now) {
  const e2e::Result result = RunTool(step.words);
  now = See();
  if (result.code != e2e::kDone) {
    return "\"" + step.Text() + "\" ends with " + std::to_string(result.code) + ": " +
           OneLine(result.err);
  }
  const std::string missing = step.reached(before, now);
  return missing.empty() ? "" : "\"" + step.Text() + "\" says done, but " + missing;
}

Sight TortureTest::Finish(const Step& step, const Sight& before, const std::string& about) {
  Sight now;
  const std::string why = Run(step, before, now);
  if (!why.empty()) faults_.push_back(about + ": " + why);
  return now;
}

void TortureTest::Cut(const Moment& moment) {
  moments_.push_back(moment);
  moments_.back().name = "cut-" + std::to_string(++cuts_);
  moments_.back().unsynced = unsynced_;
  Do(disks_->Cut(moments_.back().name, static_cast<unsigned>(Random()())));
  if (moment.is_acknowledged) complete_ = moments_.size();
}

void TortureTest::Complete(const Sight& after) {
  for (; complete_ < moments_.size(); ++complete_) moments_[complete_].after = after;
}

void TortureTest::ForgetCuts() {
  for (const Moment& each : moments_) disks_->Forget(each.name);
  moments_.clear();
  complete_ = 0;
}

void TortureTest::LookAtCuts() {
  Do(disks_->Leave());
  const std::set<std::string> unsynced = unsynced_;
  for (const Moment& each : moments_) {
    // On a slow machine, too, some are looked at.
    if (IsOver() && looked_ >= 3) break;
    Do(disks_->Enter(each.name));
    LookAtCut(each);
    Do(disks_->Drop());
    ++looked_;
  }
  ForgetCuts();
  unsynced_ = unsynced;
  Do(disks_->Return());
}

void TortureTest::LookAtCut(const Moment& moment) {
  const Sight seen = See();
  std::vector<std::string> faults = Judge(moment, seen);
  Sight now = seen;
  std::string said;  // by the step when it was run again
  const bool isThere = IsThere(moment.step, moment.before, seen);
  // A switchover that is done is switched back by the same command.
  if (moment.is_done) {
    for (const std::string& each : JudgeAgain(moment, seen, seen)) faults.push_back(each);
  }
  const bool isToRun =
      !moment.is_acknowledged && !moment.is_done && !(isThere && moment.step.verb == "switchover");
  if (isToRun) {
    const e2e::Result result = RunTool(moment.step.again);
    said = result.out + result.err;
    now = See();
    // What was done already may be refused or not found a second time.
    const bool isRefused = result.code == e2e::kNotFound || result.code == e2e::kRefused;
    if (result.code != e2e::kDone && !(isThere && isRefused)) {
      faults.push_back("run again it ends with " + std::to_string(result.code) + ": " +
                       OneLine(result.err));
    }
    if (!(isThere && isRefused)) {
      for (const std::string& each : JudgeAgain(moment, seen, now)) {
        faults.push_back("run again: " + each);
      }
    }
  }
  if (faults.empty() && moment.lives_on) LiveOn(now, faults);
  if (!faults.empty()) Tell(moment, seen, said, now);
  for (const std::string& each : faults) {
    faults_.push_back("cut " + std::to_string(looked_) + ", \"" + moment.step.Text() + "\" " +
                      moment.about + ": " + each);
  }
}

void TortureTest::LiveOn(const Sight& sight, std::vector<std::string>& faults) {
  const std::string group = MainGroupOf(sight);
  if (group.empty()) return;
  std::vector<Step> steps{TakeSnapshot(group)};
  const auto plans = PlansOf(sight, group);
  if (!plans.empty() && plans.begin()->second.state == "protected") {
    steps = {Sync(group), Failover(group, false), Reprotect(group)};
  } else if (!plans.empty()) {
    steps = {Reprotect(group), Sync(group), Switchover(group)};
  }
  Sight now = sight;
  for (const Step& step : steps) {
    const bool isWritten = step.verb == "sync" || step.verb == "snapshot create";
    std::string why = isWritten ? WriteAll(now, false) : "";
    const Sight before = now;
    if (why.empty()) why = Run(step, before, now);
    if (!why.empty()) {
      faults.push_back("later " + why);
      return;
    }
  }
}

}  // namespace torture
