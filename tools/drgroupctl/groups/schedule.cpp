#include "groups/schedule.h"

#include <vreldrcore/json.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "groups/file_write.h"
#include "groups/json_file.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

namespace fs = std::filesystem;
using VrelDRCore::JsonUtil::AsInt64;
using VrelDRCore::JsonUtil::AsText;
using VrelDRCore::JsonUtil::Member;

std::string MarkPath(const std::string& dir, const std::string& kind) {
  return dir + "/schedule." + kind + ".json";
}

std::string LockIn(const std::string& dir) {
  return dir + "/schedule.lock";
}

std::int64_t ByteOf(const std::string& kind) {
  const auto& kinds = ScheduledKinds();
  return std::find(kinds.begin(), kinds.end(), kind) - kinds.begin();
}

}  // namespace

const std::vector<std::string>& ScheduledKinds() {
  static const std::vector<std::string> kinds = {"snapshot", "sync", "prune"};
  return kinds;
}

Json::Value ToJson(const Schedule& schedule) {
  Json::Value json(Json::objectValue);
  for (const auto& [kind, calendar] : schedule) json[kind] = calendar;
  return json;
}

bool ReadSchedule(const Json::Value& json, Schedule& schedule, std::string& problem) {
  if (!json.isObject()) {
    problem = "it is no object";
    return false;
  }
  const auto& kinds = ScheduledKinds();
  for (const std::string& kind : json.getMemberNames()) {
    if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) {
      problem = Quote(kind) + " is none of " + Join(kinds, ", ");
      return false;
    }
    schedule[kind] = AsText(json[kind]);
    if (!schedule[kind].empty()) continue;
    problem = Quote(kind) + " has no text that is a calendar";
    return false;
  }
  return true;
}

std::optional<ScheduleMark> ReadMark(const std::string& dir, const std::string& kind) {
  const std::string path = MarkPath(dir, kind);
  std::error_code error;
  if (fs::symlink_status(path, error).type() == fs::file_type::not_found) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  Json::Value json;
  std::string problem;
  if (!ParseJsonObject(text.str(), json, problem)) {
    throw Failure(ExitCode::kCatalogue,
                  Quote(path) + ": " + problem +
                      "; remove it: the schedule goes on with what is due from now on");
  }
  return ScheduleMark{AsText(Member(json, "calendar")), AsInt64(Member(json, "last")),
                      AsInt64(Member(json, "next")),    AsInt64(Member(json, "begin_time")),
                      AsText(Member(json, "result")),   AsText(Member(json, "message"))};
}

void WriteMark(const std::string& dir, const std::string& kind, const ScheduleMark& mark) {
  Json::Value json(Json::objectValue);
  json["calendar"] = mark.calendar;
  json["last"] = Json::Int64(mark.last);
  json["next"] = Json::Int64(mark.next);
  json["begin_time"] = Json::Int64(mark.begin_time);
  json["result"] = mark.result;
  json["message"] = RepairUtf8(mark.message);
  const std::string path = MarkPath(dir, kind);
  const int error = WriteFileAtomically(path, VrelDRCore::JsonUtil::ToString(json) + "\n");
  if (error == 0) return;
  throw Failure(ExitCode::kStorage, "cannot write " + Quote(path) + ": " +
                                        std::generic_category().message(error) +
                                        "; nothing is run by the schedule until it can be");
}

std::optional<RangeLock> LockSchedule(const std::string& dir, const std::string& kind) {
  int error = 0;
  std::optional<RangeLock> lock = RangeLock::Take(LockIn(dir), ByteOf(kind), error);
  if (error == 0) return lock;
  throw Failure(ExitCode::kStorage, "cannot lock " + Quote(LockIn(dir)) + ": " +
                                        std::generic_category().message(error) +
                                        "; nothing is run by the schedule until it can be");
}

bool IsScheduleRunning(const std::string& dir, const std::string& kind) {
  return RangeLock::IsHeld(LockIn(dir), ByteOf(kind));
}

std::vector<std::string> ScheduleFiles(const std::string& dir) {
  std::vector<std::string> files{LockIn(dir)};
  for (const std::string& kind : ScheduledKinds()) files.push_back(MarkPath(dir, kind));
  return files;
}

}  // namespace drgroupctl
