#include "action/health.h"

#include <algorithm>
#include <ctime>
#include <set>

#include "groups/catalogue.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "host/arrived.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// A monitor asks again soon: it does not wait for one group that is being worked on.
constexpr unsigned int kPatience = 1;

GroupHealth LookAtGroup(const std::string& id) {
  GroupHealth group;
  group.id = id;
  const Group definition = LoadGroup(id);
  for (const VrelDR::Target& each : definition.targets) group.targets.push_back(each.GetId());
  if (const auto problem = ExamineCatalogue(id, Access::kRead, kPatience)) {
    group.problem = problem->text;
    return group;
  }
  const auto latest = ListGsnaps(id, true);
  group.newest_time = latest.empty() ? 0 : latest.front().gsnap_time;
  return group;
}

std::vector<VrelDR::VolumeInfo> VolumesOf(const PlanSight& plans,
                                          const std::vector<GroupHealth>& groups) {
  std::set<std::string> names;
  for (const VrelDR::PlanStanding& each : plans.standings) {
    names.insert({each.source.volume, each.replica.volume});
  }
  for (const GroupHealth& group : groups) {
    for (const std::string& target : group.targets) {
      VrelDR::TargetEntry entry;
      if (plans.by_target.count(target) == 0 && FindTarget(target, entry)) {
        names.insert(entry.volume);
      }
    }
  }
  std::vector<VrelDR::VolumeInfo> volumes = ListVolumes();
  std::erase_if(volumes, [&](const auto& each) { return names.count(each.name) == 0; });
  return volumes;
}

// What is found, and the numbers on the way.
class Judging {
 public:
  Judging(const Health& health, const HealthLimits& limits) : health_(health), limits_(limits) {}

  Judgement Run() {
    for (const GroupHealth& each : health_.groups) JudgeGroup(each);
    for (const VrelDR::VolumeInfo& each : health_.volumes) JudgeVolume(each);
    std::ranges::stable_sort(result_.findings, {}, [](const Finding& each) {
      // What is known to be bad stands before what is not known.
      return each.grade == Grade::kCritical  ? 0
             : each.grade == Grade::kUnknown ? 1
             : each.grade == Grade::kWarning ? 2
                                             : 3;
    });
    if (!result_.findings.empty()) result_.grade = result_.findings.front().grade;
    return std::move(result_);
  }

 private:
  void Find(Grade grade, const std::string& text) { result_.findings.push_back({grade, text}); }

  // Of what lies more than a minute ahead, whose age says nothing.
  bool IsAhead(std::int64_t time, const std::string& what) {
    constexpr std::int64_t kCloselyTaken = 60;
    if (time <= health_.now + kCloselyTaken) return false;
    Find(Grade::kWarning, what + " is of a time ahead of this host's clock");
    return true;
  }

  std::int64_t AgeOf(std::int64_t time) const {
    return std::max<std::int64_t>(health_.now - time, 0);
  }

  static std::string LimitText(const std::optional<std::int64_t>& limit) {
    return limit ? std::to_string(*limit) : std::string();
  }

  void JudgeGroup(const GroupHealth& group) {
    const std::string named = "group " + Quote(group.id);
    if (!group.problem.empty()) Find(Grade::kUnknown, named + ": " + Printable(group.problem));
    if (group.newest_time) JudgeAge(named, group);
    std::int64_t lag = 0;
    bool isKnown = false;
    for (const std::string& target : group.targets) {
      const auto plans = health_.plans.by_target.find(target);
      if (plans == health_.plans.by_target.end()) {
        if (limits_.max_lag) {
          Find(Grade::kCritical, named + ", target " + Quote(target) + ": it is not protected");
        }
        continue;
      }
      for (const VrelDR::PlanStanding* each : plans->second) {
        JudgePlan(named + ", target " + Quote(target), *each, lag, isKnown);
      }
    }
    if (isKnown)
      result_.measures.push_back({group.id + " lag", lag, "s", LimitText(limits_.max_lag)});
  }

  void JudgeAge(const std::string& named, const GroupHealth& group) {
    if (*group.newest_time == 0) {
      if (limits_.max_age) Find(Grade::kCritical, named + " has no group snapshot");
      return;
    }
    IsAhead(*group.newest_time, "the newest group snapshot of " + named);
    const std::int64_t age = AgeOf(*group.newest_time);
    result_.measures.push_back({group.id + " age", age, "s", LimitText(limits_.max_age)});
    if (limits_.max_age && age > *limits_.max_age) {
      Find(Grade::kCritical, "the newest group snapshot of " + named + " was taken " +
                                 FormatAgo(age) + ", more than " + FormatAge(*limits_.max_age));
    }
  }

  void JudgePlan(const std::string& named, const VrelDR::PlanStanding& standing, std::int64_t& lag,
                 bool& isKnown) {
    const Json::Value row = StatusRow(standing);
    const std::string problem = row["problem"].asString();
    const bool isFailedOver = standing.plan.GetStatus() == VrelDR::kPlanFailover;
    if (isFailedOver) {
      Find(Grade::kWarning, named + ": it is failed over, and nothing is replicated");
    }
    if (!problem.empty()) Find(GradeOf(standing, row), named + ": " + problem);
    JudgeLag(named, standing, isFailedOver, lag, isKnown);
  }

  static Grade GradeOf(const VrelDR::PlanStanding& standing, const Json::Value& row) {
    if (standing.site == VrelDR::kSiteUnreachable || row["last_snap_state"] == "gone") {
      return Grade::kCritical;
    }
    if (standing.site == VrelDR::kSiteUnknown || !standing.unread.empty() ||
        row["last_snap_state"] == "unknown") {
      return Grade::kUnknown;
    }
    return standing.op == VrelDR::kOpSync ? Grade::kWarning : Grade::kCritical;
  }

  void JudgeLag(const std::string& named, const VrelDR::PlanStanding& standing, bool isFailedOver,
                std::int64_t& lag, bool& isKnown) {
    if (isFailedOver || !standing.is_recorded_known) return;
    const Arrived arrived = ToArrived(standing.arrived, standing.arrived_problem);
    if (arrived.time == 0) {
      const Grade grade = limits_.max_lag ? Grade::kCritical : Grade::kWarning;
      Find(grade, named + ": no snapshot has arrived yet");
      return;
    }
    IsAhead(arrived.time, named + ": the last snapshot that arrived");
    const std::int64_t age = AgeOf(arrived.time);
    lag = isKnown ? std::max(lag, age) : age;
    isKnown = true;
    if (limits_.max_lag && age > *limits_.max_lag) {
      Find(Grade::kCritical, named + ": the last snapshot that arrived was taken " +
                                 FormatAgo(age) + ", more than " + FormatAge(*limits_.max_lag));
    }
  }

  void JudgeVolume(const VrelDR::VolumeInfo& volume) {
    const std::string named = "volume " + Quote(volume.name);
    if (!volume.problem.empty()) {
      Find(Grade::kCritical, named + ": " + Printable(volume.problem));
      return;
    }
    const std::uint64_t least = std::max<std::uint64_t>(
        limits_.min_free_bytes, volume.size_bytes / 100 * limits_.min_free_percent);
    result_.measures.push_back({volume.name + " free", static_cast<std::int64_t>(volume.free_bytes),
                                "B", least == 0 ? "" : std::to_string(least) + ":"});
    if (volume.free_bytes >= least) return;
    Find(Grade::kCritical, named + " has " + FormatBytes(volume.free_bytes) + " free, less than " +
                               FormatBytes(least));
  }

  const Health& health_;
  const HealthLimits& limits_;
  Judgement result_;
};

// Of what a label may have nothing but its quotes and the equals sign must go.
std::string Label(std::string text) {
  for (char& c : text) {
    if (c == '\'' || c == '=' || c == '|') c = '_';
  }
  return "'" + Printable(text) + "'";
}

// What stands behind a bar is taken for numbers.
std::string WithoutBars(std::string text) {
  std::ranges::replace(text, '|', '/');
  return text;
}

std::string Summary(const Health& health) {
  std::size_t targets = 0;
  for (const GroupHealth& each : health.groups) targets += each.targets.size();
  return Count(health.groups.size(), "group") + ", " + Count(targets, "target") + ", " +
         Count(health.volumes.size(), "volume");
}

}  // namespace

Health LookAtHealth(const std::string& groupId) {
  Health health;
  if (!groupId.empty()) {
    health.groups.push_back(LookAtGroup(groupId));
  } else {
    for (const std::string& id : ListGroupIds()) {
      try {
        health.groups.push_back(LookAtGroup(id));
      } catch (const Failure& failure) {  // one bad group does not hide the others
        health.groups.emplace_back().id = id;
        health.groups.back().problem = failure.message;
      }
    }
  }
  std::vector<std::string> targets;
  for (const GroupHealth& each : health.groups) {
    targets.insert(targets.end(), each.targets.begin(), each.targets.end());
  }
  health.plans = LookAtPlans(targets);
  health.volumes = VolumesOf(health.plans, health.groups);
  health.now = std::time(nullptr);
  return health;
}

const char* ToText(Grade grade) {
  switch (grade) {
    case Grade::kOk:
      return "OK";
    case Grade::kWarning:
      return "WARNING";
    case Grade::kCritical:
      return "CRITICAL";
    default:
      return "UNKNOWN";
  }
}

Judgement Judge(const Health& health, const HealthLimits& limits) {
  return Judging(health, limits).Run();
}

std::string PluginLine(const Health& health, const Judgement& judgement) {
  std::vector<std::string> texts;
  for (const Finding& each : judgement.findings) texts.push_back(WithoutBars(each.text));
  if (texts.empty()) texts.push_back(Summary(health));
  std::string line = std::string("DRGROUP ") + ToText(judgement.grade) + " - " + Join(texts, "; ");
  const char* separator = " | ";
  for (const Measure& each : judgement.measures) {
    line += separator + Label(each.label) + "=" + std::to_string(each.value) + each.unit +
            (each.limit.empty() ? "" : ";;" + each.limit);
    separator = " ";
  }
  return line;
}

}  // namespace drgroupctl
