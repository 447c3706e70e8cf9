#include "kill_points.h"

#include <algorithm>
#include <filesystem>
#include <regex>

#include "tree.h"

namespace torture {

namespace fs = std::filesystem;

namespace {

// Which verbs most likely come by a point, by the first part of its name. Only a help to choose: a
// point that nothing is known of is tried with every verb.
bool IsLikely(const std::string& verb, const std::string& point) {
  static const std::map<std::string, std::string> kVerbs{
      {"take", "snapshot create, sync, switchover, reprotect, edit"},
      {"cut", "snapshot create, sync"},
      {"take_up", "snapshot create, sync"},
      {"copy", "snapshot create, snapshot restore, sync, failover"},
      {"delete", "snapshot delete, snapshot prune, target remove, group delete"},
      {"remove", "snapshot delete, snapshot prune, target remove, unprotect, edit"},
      {"restore", "snapshot restore, switchover, failover, unprotect"},
      {"undo", "snapshot restore"},
      {"ship", "sync, switchover, edit"},
      {"sync", "sync, switchover, edit"},
      {"quiesce", "switchover, failover"},
      {"promote", "switchover, failover, unprotect"},
      {"create", "target create, target import, snapshot clone, protect, edit"},
      {"forget", "target remove, unprotect, edit"},
      {"plan_delete", "unprotect, edit"},
  };
  const std::string part = point.substr(0, point.find('.'));
  const auto found = kVerbs.find(part);
  return verb.find(part) != std::string::npos ||
         (found != kVerbs.end() && found->second.find(verb) != std::string::npos);
}

}  // namespace

std::vector<std::string> AllKillPoints() {
  static const std::regex kPoint(R"re(string_view\s+k\w+\s*=\s*"([a-z_.]+)")re");
  std::vector<std::string> points;
  for (const char* room : {"/host", "/tools"}) {
    for (const auto& each : fs::recursive_directory_iterator(std::string(SOURCE_DIR) + room)) {
      if (each.path().filename() != "kill_point.h") continue;
      const std::string text = host_test::ReadFile(each.path());
      for (std::sregex_iterator at(text.begin(), text.end(), kPoint), end; at != end; ++at) {
        points.push_back((*at)[1]);
      }
    }
  }
  return points;
}

// The odds: a point that this verb reached before stays likely, one that it missed fades away, and
// one that nothing has reached yet comes first.
std::string KillChoice::For(const std::string& verb, std::mt19937& random) const {
  std::vector<double> odds;
  for (const std::string& point : points_) {
    const auto missed = missed_.find({verb, point});
    const auto hit = hit_.find({verb, point});
    double weight = hit != hit_.end() ? 2.0 / (1 + hit->second) : 1;
    if (reached_.count(point) == 0) weight *= 2;
    if (IsLikely(verb, point)) weight *= 100;
    if (missed != missed_.end() && hit == hit_.end()) weight *= missed->second > 1 ? 0.02 : 0.1;
    odds.push_back(weight);
  }
  std::discrete_distribution<std::size_t> choose(odds.begin(), odds.end());
  return points_[choose(random)];
}

void KillChoice::Tell(const std::string& verb, const std::string& point, bool isReached) {
  ++(isReached ? hit_ : missed_)[{verb, point}];
  if (isReached) reached_.insert(point);
}

std::set<std::string> KillChoice::NeverReached() const {
  std::set<std::string> never(points_.begin(), points_.end());
  for (const std::string& each : reached_) never.erase(each);
  return never;
}

}  // namespace torture
