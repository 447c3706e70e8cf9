#include "sight.h"

#include <json/reader.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vreldr/target_operation.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>

#include "content.h"

namespace torture {

namespace {

constexpr const char* kProblem = "problem: ";

// The last line of what a command said, without its end.
std::string LastLine(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text.substr(text.rfind('\n') + 1);
}

// A document of the tool. A verb that fails is a fact of its own under `name`.
Json::Value Ask(const std::vector<std::string>& words, const std::string& name, Sight& sight) {
  std::vector<std::string> all = words;
  all.emplace_back("--json");
  const e2e::Result result = RunTool(all);
  Json::Value root;
  std::string errors;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  const char* text = result.out.data();
  if (result.code != e2e::kDone || !reader->parse(text, text + result.out.size(), &root, &errors)) {
    sight.facts[name] = kProblem + LastLine(result.err);
    return Json::objectValue;
  }
  return root;
}

// The snapshots that the host lists of a target, with what they hold: a line each.
std::string DescribeSnapshots(const std::string& target) {
  std::string text;
  const VrelDR::TargetOperation operation(0, target);
  for (const auto& each : operation.ListSnapshots()) {
    text += target + "\t" + each.snap_id + "\t" + VersionAt(each.path) + "\n";
  }
  if (operation.GetErrCode() != 0) {
    text += target + "\t\t" + kProblem + operation.GetErrMsg().asString() + "\n";
  }
  return text;
}

// In a process of its own, which leaves nothing open on the volumes.
void LookAtSnapshots(Sight& sight) {
  int ends[2];
  if (pipe(ends) != 0) return;
  const pid_t pid = fork();
  if (pid == 0) {
    std::string text;
    for (const auto& [id, target] : sight.targets) text += DescribeSnapshots(id);
    const bool isWritten =
        write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(isWritten ? 0 : 1);
  }
  close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || status != 0) {
    sight.facts["snapshots"] = std::string(kProblem) + "a crash";
  }
  std::istringstream lines(text);
  for (std::string target, id, version; std::getline(lines, target, '\t') &&
                                        std::getline(lines, id, '\t') &&
                                        std::getline(lines, version);) {
    sight.snapshots[target][id] = version;
    sight.facts["snapshot " + target + "/" + id] = version;
  }
}

void LookAtTargets(Sight& sight) {
  const Json::Value list = Ask({"target", "list"}, "targets", sight);
  for (const Json::Value& each : list["targets"]) {
    const std::string id = each["target_id"].asString();
    SeenTarget& target = sight.targets[id];
    target.type = each["type"].asString();
    target.volume = each["volume"].asString();
    target.path = each["path"].asString();
    sight.facts["target " + id] = each["exists"] == Json::Value(true)
                                      ? target.volume + " " + target.type
                                      : kProblem + std::string("does not exist");
  }
  LookAtSnapshots(sight);
}

// What a snapshot holds that a plan names. One that has arrived whole may have to wait for the next
// command until the host lists it.
std::string VersionOf(const std::string& target, const std::string& id, const Sight& sight) {
  const auto known = sight.snapshots.find(target);
  if (known != sight.snapshots.end() && known->second.count(id) != 0) return known->second.at(id);
  const auto found = sight.targets.find(target);
  if (found == sight.targets.end()) return "not there";
  const bool isFile = found->second.type == "lun";
  const std::filesystem::path path = found->second.path;
  const auto volume = isFile ? path.parent_path().parent_path() : path.parent_path();
  return VersionAt(volume / ".vreldr/snapshots" / target / id / (isFile ? "disk.img" : ""));
}

void LookAtPlans(const std::string& group, Sight& sight) {
  const Json::Value list = Ask({"status", group}, "status of " + group, sight);
  for (const Json::Value& each : list["targets"]) {
    const std::string id = each["target_id"].asString();
    if (each["plan_id"].asString().empty() || each["group_id"].asString() != group) continue;
    SeenPlan& plan = sight.plans[id];
    plan.group = group;
    plan.state = each["state"].asString();
    plan.working = each["working_target_id"].asString();
    plan.replica = each["replica_target_id"].asString();
    plan.last = each["last_snap_id"].asString();
    sight.facts["plan " + id] = plan.state + ", " + plan.working + " works";
    if (!plan.last.empty()) {
      const std::string copy = plan.state == "protected" ? plan.replica : plan.working;
      sight.facts["arrived " + id] = plan.last + "=" + VersionOf(copy, plan.last, sight);
    }
  }
}

void LookAtGroup(const std::string& group, Sight& sight) {
  const std::string name = "group " + group;
  const Json::Value document = Ask({"group", "show", group}, name, sight);
  if (sight.facts.count(name) != 0) return;
  std::string text;
  for (const Json::Value& each : document["targets"]) {
    sight.groups[group].push_back(each["target_id"].asString());
    text += each["target_id"].asString() + " ";
  }
  for (const Json::Value& each : document["writers"]) {
    text += "held by " + each["name"].asString() + " ";
  }
  sight.facts[name] = text;
  const Json::Value list = Ask({"snapshot", "list", group}, "snapshots of " + group, sight);
  for (const Json::Value& each : list["snapshots"]) {
    const std::string id = each["gsnap_id"].asString();
    std::string what = each["status"].asString();
    const Json::Value parts = Ask({"snapshot", "show", id}, "gsnap " + id, sight);
    for (const Json::Value& part : parts["targets"]) {
      const std::string target = part["target_id"].asString();
      const std::string snapshot = part["tsnap_id"].asString();
      const auto& known = sight.snapshots[target];
      const auto found = known.find(snapshot);
      sight.gsnaps[id][target] = snapshot;
      std::string version = found == known.end() ? "not there" : found->second;
      // The list tells what was found out last, this verb what is so now.
      if (part["exists"] != Json::Value(true)) version = "said to be missing";
      what += " " + target + "/" + snapshot + "=" + version;
    }
    // Half recorded, or half deleted.
    if (sight.gsnaps[id].size() < sight.groups[group].size()) what += " and the others=not there";
    sight.facts["gsnap " + id] = what;
  }
  LookAtPlans(group, sight);
}

}  // namespace

e2e::Result RunTool(const std::vector<std::string>& words,
                    const std::map<std::string, std::string>& environment) {
  for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
  std::vector<std::string> argv{DRGROUPCTL};
  argv.insert(argv.end(), words.begin(), words.end());
  e2e::Process process(argv);
  for (const auto& [name, value] : environment) unsetenv(name.c_str());
  return process.Wait();
}

void Sight::Set(const std::string& target, int version) {
  held[target] = working[target] = facts["works " + target] = "v" + std::to_string(version);
}

std::string Sight::Version(const std::string& target) const {
  const auto found = working.find(target);
  return found == working.end() ? "" : found->second;
}

Sight Look() {
  Sight sight;
  LookAtTargets(sight);
  const Json::Value list = Ask({"group", "list"}, "groups", sight);
  for (const Json::Value& each : list["groups"]) {
    const std::string id = each["group_id"].asString();
    if (each["problem"].asString().empty()) {
      LookAtGroup(id, sight);
    } else {
      sight.group_problems[id] = each["problem"].asString();
      sight.facts["group " + id] = kProblem + each["problem"].asString();
    }
  }
  std::set<std::string> idle;
  for (const auto& [id, plan] : sight.plans) {
    for (const std::string& each : {id, plan.replica, plan.working}) idle.insert(each);
  }
  for (const auto& [id, plan] : sight.plans) idle.erase(plan.working);
  for (const auto& [id, target] : sight.targets) {
    // What is gone, or is being removed, holds nothing.
    if (sight.facts["target " + id].rfind(kProblem, 0) == 0) continue;
    sight.held[id] = VersionAt(target.path);
    if (idle.count(id) != 0) continue;
    sight.working[id] = sight.held[id];
    sight.facts["works " + id] = sight.working[id];
  }
  return sight;
}

}  // namespace torture
