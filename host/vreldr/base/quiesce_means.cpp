#include <algorithm>
#include <set>
#include <string_view>

#include "config/quoted.h"
#include "vreldr/quiesce.h"
#include "vreldrcore/json.h"

namespace VrelDR {

namespace {

using VrelDRCore::JsonUtil::AsBool;
using VrelDRCore::JsonUtil::AsUInt64;
using VrelDRCore::JsonUtil::Member;
using VrelHost::Quoted;

Json::Value ToArray(const std::vector<std::string>& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& each : texts) array.append(each);
  return array;
}

// The functions that read put what is wrong into `problem`, unless something is already.

void Tell(std::string& problem, const std::string& text) {
  if (problem.empty()) problem = text;
}

void ReadTexts(const Json::Value& json, const std::string& key, std::vector<std::string>& texts,
               std::string& problem) {
  const Json::Value list = Member(json, key);
  if (list.isNull()) return;
  if (!list.isArray()) return Tell(problem, Quoted(key) + " is not a list");
  for (const Json::Value& each : list) {
    if (!each.isString()) return Tell(problem, Quoted(key) + " has something that is not a text");
    texts.push_back(each.asString());
  }
}

void CheckNames(const Json::Value& json, const std::set<std::string_view>& known,
                std::string& problem) {
  for (const std::string& each : json.getMemberNames()) {
    if (known.count(each) == 0) Tell(problem, "there is no member " + Quoted(each));
  }
}

void ReadCommand(const Json::Value& json, QuiesceCommand& command, std::string& problem) {
  constexpr const char* kFlag = "is_app_consistent";
  if (!json.isObject()) return Tell(problem, "\"commands\" has something that is not an object");
  CheckNames(json, {"freeze", "thaw", kFlag}, problem);
  ReadTexts(json, "freeze", command.freeze, problem);
  ReadTexts(json, "thaw", command.thaw, problem);
  const Json::Value flag = Member(json, kFlag);
  if (!flag.isNull() && !flag.isBool()) Tell(problem, Quoted(kFlag) + " is not true or false");
  command.is_app_consistent = AsBool(flag);
}

void ReadCommands(const Json::Value& list, std::vector<QuiesceCommand>& commands,
                  std::string& problem) {
  if (list.isNull()) return;
  if (!list.isArray()) return Tell(problem, "\"commands\" is not a list");
  for (const Json::Value& each : list) ReadCommand(each, commands.emplace_back(), problem);
}

// A program cannot be given what lies behind such a byte.
bool HasZero(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

void CheckArguments(const std::vector<std::string>& args, const std::string& which,
                    std::string& problem) {
  if (args.empty() || args[0].empty()) Tell(problem, "a " + which + " command names no program");
  if (std::any_of(args.begin(), args.end(), HasZero)) {
    Tell(problem, "a " + which + " command has a byte that is zero");
  }
}

void CheckList(const std::vector<std::string>& list, const std::string& what,
               std::string& problem) {
  std::set<std::string_view> seen;
  for (const std::string& each : list) {
    if (each.empty() || HasZero(each)) Tell(problem, "a " + what + " has no name that can be used");
    if (!seen.insert(each).second) Tell(problem, what + " " + Quoted(each) + " is named twice");
  }
}

}  // namespace

bool QuiesceMeans::IsEmpty() const {
  return control_groups.empty() && units.empty() && domains.empty() && commands.empty();
}

bool QuiesceMeans::IsAppConsistent() const {
  return !commands.empty() && std::all_of(commands.begin(), commands.end(),
                                          [](const auto& each) { return each.is_app_consistent; });
}

std::string QuiesceMeans::FindProblem() const {
  std::string problem;
  CheckList(control_groups, "control group", problem);
  CheckList(units, "unit", problem);
  CheckList(domains, "domain", problem);
  for (const std::string& each : control_groups) {
    if (each.substr(0, 1) != "/") {
      Tell(problem, "control group " + Quoted(each) + " is not an absolute path");
    }
  }
  for (const QuiesceCommand& each : commands) {
    CheckArguments(each.freeze, "freeze", problem);
    CheckArguments(each.thaw, "thaw", problem);
  }
  if (deadline_ms < kLeastDeadlineMs || deadline_ms > kMostDeadlineMs) {
    Tell(problem, "the deadline is to be from " + std::to_string(kLeastDeadlineMs) + " to " +
                      std::to_string(kMostDeadlineMs) + " ms");
  }
  return problem;
}

Json::Value QuiesceMeans::ToJson() const {
  Json::Value json(Json::objectValue);
  json["control_groups"] = ToArray(control_groups);
  json["units"] = ToArray(units);
  json["domains"] = ToArray(domains);
  Json::Value& list = json["commands"] = Json::Value(Json::arrayValue);
  for (const QuiesceCommand& each : commands) {
    Json::Value command(Json::objectValue);
    command["freeze"] = ToArray(each.freeze);
    command["thaw"] = ToArray(each.thaw);
    command["is_app_consistent"] = each.is_app_consistent;
    list.append(command);
  }
  json["deadline_ms"] = deadline_ms;
  return json;
}

bool QuiesceMeans::FromJson(const Json::Value& json, std::string& problem) {
  QuiesceMeans read;
  problem.clear();
  if (!json.isObject()) {
    problem = "it is not an object";
    return false;
  }
  CheckNames(json, {"control_groups", "units", "domains", "commands", "deadline_ms"}, problem);
  ReadTexts(json, "control_groups", read.control_groups, problem);
  ReadTexts(json, "units", read.units, problem);
  ReadTexts(json, "domains", read.domains, problem);
  ReadCommands(Member(json, "commands"), read.commands, problem);
  const Json::Value deadline = Member(json, "deadline_ms");
  if (!deadline.isNull() && !deadline.isUInt()) Tell(problem, "\"deadline_ms\" is not a number");
  if (deadline.isUInt()) read.deadline_ms = static_cast<std::uint32_t>(AsUInt64(deadline));
  Tell(problem, read.FindProblem());
  if (problem.empty()) *this = std::move(read);
  return problem.empty();
}

}  // namespace VrelDR
