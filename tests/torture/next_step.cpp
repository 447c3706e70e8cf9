#include <algorithm>
#include <filesystem>

#include "content.h"
#include "step.h"

namespace torture {

namespace {

// Steps with how often they are to be taken.
class Choice {
 public:
  void Add(int weight, const Step& step) { steps_.emplace_back(weight, step); }
  Step Pick(std::mt19937& random) const {
    int sum = 0;
    for (const auto& [weight, step] : steps_) sum += weight;
    int at = static_cast<int>(random() % static_cast<unsigned>(sum));
    for (const auto& [weight, step] : steps_) {
      at -= weight;
      if (at < 0) return step;
    }
    return steps_.back().second;
  }

 private:
  std::vector<std::pair<int, Step>> steps_;
};

std::vector<std::string> SnapshotsOf(const Sight& sight, const std::string& group) {
  std::vector<std::string> ids;
  for (const auto& [id, targets] : sight.gsnaps) {
    if (id.rfind(group + "-gsnap-", 0) == 0) ids.push_back(id);
  }
  return ids;
}

// Targets that belong to nothing.
std::vector<std::string> StraysOf(const Sight& sight) {
  std::vector<std::string> strays;
  for (const auto& [id, target] : sight.targets) {
    bool isUsed = false;
    for (const auto& [group, targets] : sight.groups) {
      isUsed = isUsed || std::count(targets.begin(), targets.end(), id) != 0;
    }
    for (const auto& [main, plan] : sight.plans) {
      isUsed = isUsed || id == plan.replica || id == plan.working || id == main;
    }
    if (!isUsed) strays.push_back(id);
  }
  return strays;
}

void AddSnapshots(Choice& choice, const Sight& sight, const std::string& group, bool canRestore,
                  std::mt19937& random) {
  choice.Add(3, TakeSnapshot(group));
  const auto gsnaps = SnapshotsOf(sight, group);
  if (gsnaps.empty()) return;
  const std::string& one = gsnaps[random() % gsnaps.size()];
  choice.Add(gsnaps.size() > 4 ? 6 : 2, DeleteSnapshot(one));
  if (canRestore) choice.Add(2, RestoreSnapshot(one));
  if (StraysOf(sight).size() < 2) choice.Add(1, CloneSnapshot(one));
}

void AddExtras(Choice& choice, const Sight& sight, std::mt19937& random, const std::string& imports,
               int& version) {
  const std::string volume = random() % 2 == 0 ? "v1" : "v2";
  if (sight.targets.count("x") == 0) {
    choice.Add(1, CreateTarget("x", volume, random() % 2 == 0 ? "lun" : "share"));
    const std::string path = imports + "/" + std::to_string(++version);
    std::filesystem::create_directories(path);
    if (WriteVersion(path, version).empty()) {
      choice.Add(1, ImportTarget("x", volume, path, "v" + std::to_string(version)));
    }
  } else if (sight.groups.count("h") == 0 && sight.groups.count("k") == 0) {
    choice.Add(2, CreateGroup("h", {"x"}));
  }
  for (const std::string& each : StraysOf(sight)) choice.Add(2, RemoveTarget(each));
  for (const auto& [from, to] : {std::pair("h", "k"), std::pair("k", "h")}) {
    if (sight.groups.count(from) == 0) continue;
    choice.Add(1, RenameGroup(from, to));
    choice.Add(1, DeleteGroup(from));
    choice.Add(1, TakeSnapshot(from));
  }
}

}  // namespace

Step NextStep(const Sight& sight, std::mt19937& random, const std::string& imports, int& version,
              Arrived arrived) {
  const std::string group = MainGroupOf(sight);
  const auto plans = PlansOf(sight, group);
  Choice choice;
  choice.Add(1, HoldWriters(group, "/bin/true " + std::to_string(version)));
  AddExtras(choice, sight, random, imports, version);
  if (sight.groups.count("d") != 0) choice.Add(plans.empty() ? 6 : 1, DeleteGroup("d"));
  if (plans.empty()) {
    AddSnapshots(choice, sight, group, true, random);
    choice.Add(1, RenameGroup(group, group == "g" ? "i" : "g"));
    const auto strays = StraysOf(sight);
    const bool hasCopies = std::any_of(strays.begin(), strays.end(), [](const std::string& each) {
      return each.find("-dr") != std::string::npos;
    });
    if (!hasCopies && sight.groups.count("d") == 0) {
      choice.Add(6, Protect(group, "v2", random() % 2 == 0 ? "d" : ""));
    }
    return choice.Pick(random);
  }
  const SeenPlan& plan = plans.begin()->second;
  const bool isAtHome = plan.working == "a";
  if (plan.state == "failed over") {
    choice.Add(6, Reprotect(group));
    return choice.Pick(random);
  }
  // A target that does not work takes no snapshot.
  if (isAtHome) AddSnapshots(choice, sight, group, true, random);
  choice.Add(6, Sync(group));
  choice.Add(1, Prune(group));
  if (plan.last.empty()) return choice.Pick(random);
  choice.Add(3, Switchover(group));
  if (arrived != Arrived::kNothing) {
    choice.Add(3, Failover(group, random() % 2 == 0, arrived == Arrived::kNoCut));
  }
  const auto gsnaps = SnapshotsOf(sight, group);
  if (isAtHome && !gsnaps.empty()) choice.Add(1, ShipSnapshot(gsnaps.back()));
  if (isAtHome && sight.groups.count("d") == 0) {
    choice.Add(1, Unprotect(group, random() % 2 == 0));
    const auto copy = sight.targets.find(plan.replica);
    const bool isOnSecond = copy != sight.targets.end() && copy->second.volume == "v2";
    choice.Add(1, Edit(group, isOnSecond ? "v3" : "v2"));
  }
  return choice.Pick(random);
}

}  // namespace torture
