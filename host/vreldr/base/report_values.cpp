#include <array>
#include <string_view>
#include <utility>

#include "vreldr/report.h"
#include "vreldr/utils.h"
#include "vreldrcore/json.h"

namespace VrelDR {

namespace {

using VrelDRCore::JsonUtil::AsUInt64;
using VrelDRCore::JsonUtil::Member;

constexpr std::array<std::pair<OPState, std::string_view>, 4> kStateNames{{
    {OPState::kRunning, "running"},
    {OPState::kDone, "done"},
    {OPState::kFailed, "failed"},
    {OPState::kInterrupted, "interrupted"},
}};

void ParseState(const Json::Value& json, OPState& state) {
  std::string found;
  Utils::ParseJsonValueFromField(json, "state", found);
  for (const auto& [each, name] : kStateNames) {
    if (name == found) state = each;
  }
}

void ParseSize(const Json::Value& json, const char* key, std::uint64_t& size) {
  const Json::Value value = Member(json, key);
  if (value.isUInt64()) size = AsUInt64(value);
}

void ParseTime(const Json::Value& json, const char* key, std::uint32_t& time) {
  const Json::Value value = Member(json, key);
  if (value.isUInt()) time = value.asUInt();
}

void ParseSnapshots(const Json::Value& json, std::vector<std::string>& snapshots) {
  const Json::Value value = Member(json, "snapshots");
  if (!value.isArray()) return;
  snapshots.clear();
  for (const Json::Value& each : value) {
    if (each.isString()) snapshots.push_back(each.asString());
  }
}

}  // namespace

std::string ToString(OPState state) {
  for (const auto& [each, name] : kStateNames) {
    if (each == state) return std::string(name);
  }
  return {};
}

Json::Value SyncRecord::ToResponse() const {
  Json::Value json(Json::objectValue);
  json["sync_size_byte"] = Json::Value::UInt64{sync_size_byte};
  json["total_size_byte"] = Json::Value::UInt64{total_size_byte};
  json["sent_size_byte"] = Json::Value::UInt64{sent_size_byte};
  json["begin_time"] = begin_time;
  json["end_time"] = end_time;
  return json;
}

void SyncReport::FromJson(const Json::Value& json) {
  ParseState(json, state_);
  Utils::ParseJsonValueFromField(json, "snap_id", snap_id_);
  const Json::Value record = Member(json, "record");
  ParseSize(record, "sync_size_byte", record_.sync_size_byte);
  ParseSize(record, "total_size_byte", record_.total_size_byte);
  ParseSize(record, "sent_size_byte", record_.sent_size_byte);
  ParseTime(record, "begin_time", record_.begin_time);
  ParseTime(record, "end_time", record_.end_time);
}

Json::Value SyncReport::ToResponse() const {
  Json::Value json(Json::objectValue);
  json["state"] = ToString(state_);
  json["snap_id"] = snap_id_;
  json["record"] = record_.ToResponse();
  return json;
}

void RetentionLockReport::FromJson(const Json::Value& json) {
  ParseSnapshots(json, snapshots_);
}

std::string RetentionLockReport::GetLastSnapshot() const {
  return snapshots_.empty() ? std::string() : snapshots_.back();
}

void SiteOPJournal::FromJson(const Json::Value& json) {
  int op = op_status_;
  Utils::ParseJsonValueFromField(json, "op_status", op);
  op_status_ = static_cast<DRPlanOPStatus>(op);
  ParseState(json, state_);
  Utils::ParseJsonValueFromField(json, "progress", progress_);
  ParseTime(json, "begin_time", begin_time_);
  Utils::ParseJsonValueFromField(json, "message", message_);
}

void PendingSnapReport::FromJson(const Json::Value& json) {
  ParseSnapshots(json, snapshots_);
}

}  // namespace VrelDR
