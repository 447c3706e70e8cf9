#include "step.h"

namespace torture {

namespace {

using Words = std::vector<std::string>;
using Reached = std::function<std::string(const Sight&, const Sight&)>;

Step Make(const std::string& verb, const Words& words, Reached reached) {
  return {verb, words, words, std::move(reached)};
}

// What is promised of every plan of a group. A group that has none now has lost them.
Reached OfEachPlan(
    const std::string& group,
    const std::function<bool(const Sight&, const Sight&, const std::string&)>& isTrue,
    const std::string& what) {
  return [=](const Sight& before, const Sight& now) -> std::string {
    const auto plans = PlansOf(now, group);
    if (plans.empty()) return "group " + group + " has no plans";
    for (const auto& [target, plan] : plans) {
      if (!isTrue(before, now, target)) return "target " + target + " " + what;
    }
    return "";
  };
}

std::string ArrivedVersion(const Sight& sight, const std::string& target) {
  const auto found = sight.facts.find("arrived " + target);
  return found == sight.facts.end() ? "" : found->second.substr(found->second.find('=') + 1);
}

bool IsReplicated(const Sight& /*before*/, const Sight& now, const std::string& target) {
  return ArrivedVersion(now, target) == now.Version(now.plans.at(target).working);
}

Reached Always() {
  return [](const Sight&, const Sight&) { return std::string(); };
}

// What the targets of a group snapshot held when it was taken.
std::map<std::string, std::string> VersionsOf(const Sight& sight, const std::string& gsnap) {
  std::map<std::string, std::string> versions;
  const auto found = sight.gsnaps.find(gsnap);
  if (found == sight.gsnaps.end()) return versions;
  for (const auto& [target, id] : found->second) {
    const auto snapshots = sight.snapshots.find(target);
    if (snapshots != sight.snapshots.end() && snapshots->second.count(id) != 0) {
      versions[target] = snapshots->second.at(id);
    }
  }
  return versions;
}

bool HasNewSnapshot(const Sight& before, const Sight& now, const std::string& group) {
  for (const auto& [id, targets] : now.gsnaps) {
    if (before.gsnaps.count(id) != 0 || id.rfind(group + "-gsnap-", 0) != 0) continue;
    bool isWhole = now.facts.at("gsnap " + id).rfind("ready ", 0) == 0;
    for (const auto& [target, version] : VersionsOf(now, id)) {
      isWhole = isWhole && version == now.Version(target);
    }
    if (isWhole && VersionsOf(now, id).size() == now.groups.at(group).size()) return true;
  }
  return false;
}

}  // namespace

std::string Step::Text() const {
  std::string text;
  for (const std::string& each : words) text += (text.empty() ? "" : " ") + each;
  return text;
}

std::string MainGroupOf(const Sight& sight) {
  for (const auto& [id, targets] : sight.groups) {
    for (const std::string& each : targets) {
      if (each == "a") return id;
    }
  }
  return "";
}

std::map<std::string, SeenPlan> PlansOf(const Sight& sight, const std::string& group) {
  std::map<std::string, SeenPlan> plans;
  for (const auto& [target, plan] : sight.plans) {
    if (plan.group == group) plans[target] = plan;
  }
  return plans;
}

Step CreateTarget(const std::string& id, const std::string& volume, const std::string& type) {
  Words words{"target", "create", id, "--volume", volume, "--type", type};
  if (type == "lun") words.insert(words.end(), {"--size", "1M"});
  return Make("target create", words, [=](const Sight&, const Sight& now) -> std::string {
    return now.Version(id) == "v0" ? "" : "the new target " + id + " is not there and empty";
  });
}

Step ImportTarget(const std::string& id, const std::string& volume, const std::string& path,
                  const std::string& version) {
  return Make(
      "target import", {"target", "import", id, path, "--volume", volume, "--type", "share"},
      [=](const Sight&, const Sight& now) -> std::string {
        return now.Version(id) == version ? ""
                                          : "the new target " + id + " does not hold " + version;
      });
}

Step RemoveTarget(const std::string& id) {
  return Make("target remove", {"target", "remove", id, "--with-snapshots", "--yes"},
              [=](const Sight&, const Sight& now) -> std::string {
                return now.targets.count(id) == 0 ? "" : "target " + id + " is still there";
              });
}

Step CreateGroup(const std::string& id, const std::vector<std::string>& targets) {
  Words words{"group", "create", id, "--target"};
  words.insert(words.end(), targets.begin(), targets.end());
  return Make("group create", words, [=](const Sight&, const Sight& now) -> std::string {
    const auto found = now.groups.find(id);
    const bool isThere = found != now.groups.end() && found->second == targets;
    return isThere ? "" : "group " + id + " is not there with its targets";
  });
}

Step DeleteGroup(const std::string& id) {
  return Make("group delete", {"group", "delete", id, "--force", "--yes"},
              [=](const Sight&, const Sight& now) -> std::string {
                return now.facts.count("group " + id) == 0 ? "" : "group " + id + " is still there";
              });
}

Step HoldWriters(const std::string& group, const std::string& command) {
  return Make(
      "group quiesce",
      {"group", "quiesce", group, "--freeze-command", command, "--thaw-command", "/bin/true"},
      [=](const Sight&, const Sight& now) -> std::string {
        const auto found = now.facts.find("group " + group);
        const bool isSet = found != now.facts.end() &&
                           found->second.find("held by " + command + " ") != std::string::npos;
        return isSet ? "" : "the writers of group " + group + " are not held by " + command;
      });
}

Step RenameGroup(const std::string& id, const std::string& to) {
  return Make("group rename", {"group", "rename", id, to},
              [=](const Sight& before, const Sight& now) -> std::string {
                if (now.facts.count("group " + id) != 0) return "group " + id + " is still there";
                if (now.groups.count(to) == 0) return "group " + to + " is not there";
                for (const auto& [gsnap, targets] : before.gsnaps) {
                  if (gsnap.rfind(id + "-gsnap-", 0) != 0) continue;
                  const auto found = now.gsnaps.find(to + gsnap.substr(id.size()));
                  if (found == now.gsnaps.end() || found->second != targets) {
                    return "group snapshot " + gsnap + " was lost";
                  }
                }
                return "";
              });
}

Step TakeSnapshot(const std::string& group) {
  return Make("snapshot create", {"snapshot", "create", group},
              [=](const Sight& before, const Sight& now) -> std::string {
                return HasNewSnapshot(before, now, group) ? ""
                                                          : "no group snapshot of now is there";
              });
}

Step DeleteSnapshot(const std::string& gsnap) {
  return Make("snapshot delete", {"snapshot", "delete", gsnap, "--force", "--yes"},
              [=](const Sight& before, const Sight& now) -> std::string {
                if (now.gsnaps.count(gsnap) != 0) return gsnap + " is still there";
                const auto found = before.gsnaps.find(gsnap);
                if (found == before.gsnaps.end()) return "";
                for (const auto& [target, id] : found->second) {
                  if (now.facts.count("snapshot " + target + "/" + id) != 0) {
                    return "the bytes of target " + target + " are still there";
                  }
                }
                return "";
              });
}

Step RestoreSnapshot(const std::string& gsnap) {
  return Make("snapshot restore", {"snapshot", "restore", gsnap, "--yes"},
              [=](const Sight&, const Sight& now) -> std::string {
                const auto versions = VersionsOf(now, gsnap);
                if (versions.empty()) return gsnap + " is gone";
                for (const auto& [target, version] : versions) {
                  if (now.Version(target) != version) {
                    return "target " + target + " holds " + now.Version(target) + " and not " +
                           version;
                  }
                }
                return "";
              });
}

Step CloneSnapshot(const std::string& gsnap) {
  return Make("snapshot clone", {"snapshot", "clone", gsnap},
              [=](const Sight& before, const Sight& now) -> std::string {
                std::multiset<std::string> wanted;
                for (const auto& [target, version] : VersionsOf(now, gsnap)) wanted.insert(version);
                for (const auto& [id, version] : now.working) {
                  const auto found = wanted.find(version);
                  if (before.targets.count(id) == 0 && found != wanted.end()) wanted.erase(found);
                }
                return wanted.empty() ? "" : "a clone with " + *wanted.begin() + " is missing";
              });
}

Step ShipSnapshot(const std::string& gsnap) {
  return Make("snapshot ship", {"snapshot", "ship", gsnap}, Always());
}

Step RecordSnapshot(const std::string& group) {
  return Make("snapshot sync", {"snapshot", "sync", group},
              [=](const Sight& before, const Sight& now) -> std::string {
                return now.gsnaps.size() > before.gsnaps.size() ? "" : "nothing was recorded";
              });
}

Step Prune(const std::string& group) {
  return Make("snapshot prune", {"snapshot", "prune", group, "--yes"}, Always());
}

Step Protect(const std::string& group, const std::string& volume, const std::string& drGroup) {
  Words words{"protect", group, "--volume", volume};
  if (!drGroup.empty()) words.insert(words.end(), {"--dr-group", drGroup});
  Step step = Make("protect", words, [=](const Sight&, const Sight& now) -> std::string {
    const auto plans = PlansOf(now, group);
    const auto found = now.groups.find(group);
    if (found == now.groups.end() || plans.size() != found->second.size()) {
      return "not every target has a plan";
    }
    if (!drGroup.empty() && now.groups.count(drGroup) == 0) {
      return "the group of the copies, " + drGroup + ", is not there";
    }
    return "";
  });
  step.again.emplace_back("--missing");
  return step;
}

Step Sync(const std::string& group) {
  return Make("sync", {"sync", group},
              OfEachPlan(group, IsReplicated, "has not arrived as it is now"));
}

Step Switchover(const std::string& group) {
  const auto isTurned = [](const Sight& before, const Sight& now, const std::string& target) {
    const auto was = before.plans.find(target);
    return was != before.plans.end() && was->second.working != now.plans.at(target).working &&
           now.plans.at(target).state == "protected" &&
           before.Version(was->second.working) == now.Version(now.plans.at(target).working);
  };
  return Make("switchover", {"switchover", group},
              OfEachPlan(group, isTurned, "is not switched over with its bytes"));
}

Step Failover(const std::string& group, bool isForced, bool isMixed) {
  Words words{"failover", group, "--yes"};
  if (isForced) words.emplace_back("--force");
  if (isMixed) words.emplace_back("--mixed");
  return Make("failover", words, [=](const Sight& before, const Sight& now) -> std::string {
    const auto plans = PlansOf(now, group);
    if (plans.empty()) return "group " + group + " has no plans";
    for (const auto& [target, plan] : plans) {
      const auto was = before.plans.find(target);
      const bool isOver = plan.state == "failed over" && was != before.plans.end() &&
                          plan.working != was->second.working;
      if (!isOver) return "target " + target + " is " + plan.state + ", " + plan.working + " works";
      const std::string arrived = ArrivedVersion(before, target);
      if (now.Version(plan.working) != arrived) {
        return "target " + target + " works with " + now.Version(plan.working) +
               ", and what had arrived was " + arrived;
      }
    }
    return "";
  });
}

Step Reprotect(const std::string& group) {
  const auto isProtected = [](const Sight& before, const Sight& now, const std::string& target) {
    const SeenPlan& plan = now.plans.at(target);
    return plan.state == "protected" && before.plans.count(target) != 0 &&
           plan.working == before.plans.at(target).working &&
           now.Version(plan.working) == before.Version(plan.working);
  };
  return Make("reprotect", {"reprotect", group},
              OfEachPlan(group, isProtected, "is not protected again with its bytes"));
}

Step Edit(const std::string& group, const std::string& volume) {
  const auto isMoved = [=](const Sight& before, const Sight& now, const std::string& target) {
    const auto copy = now.targets.find(now.plans.at(target).replica);
    return copy != now.targets.end() && copy->second.volume == volume &&
           IsReplicated(before, now, target);
  };
  return Make("edit", {"edit", group, "--volume", volume, "--yes"},
              OfEachPlan(group, isMoved, "is not moved and synced"));
}

Step Unprotect(const std::string& group, bool withData) {
  Words words{"unprotect", group, "--yes"};
  if (withData) words.emplace_back("--delete-data");
  return Make("unprotect", words, [=](const Sight& before, const Sight& now) -> std::string {
    if (!PlansOf(now, group).empty()) return "there are plans left";
    for (const auto& [target, plan] : PlansOf(before, group)) {
      if (now.Version(plan.working) != before.Version(plan.working)) {
        return "target " + plan.working + " lost its bytes";
      }
      if (withData && now.targets.count(plan.replica) != 0) {
        return "copy " + plan.replica + " is still there";
      }
      const std::string arrived = ArrivedVersion(before, target);
      if (!withData && !arrived.empty() && now.Version(plan.replica) != arrived) {
        return "copy " + plan.replica + " does not hold what arrived last";
      }
    }
    return "";
  });
}

}  // namespace torture
