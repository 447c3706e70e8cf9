#include "vreldr/operation.h"
#include "vreldr/plan.h"
#include "vreldr/utils.h"
#include "vreldrcore/json.h"

namespace VrelDR {

using VrelDRCore::JsonUtil::Member;

bool PlanRemoteConn::FromJson(const Json::Value& json) {
  constexpr int kHighestPort = 65535;
  const Json::Value controller = Member(json, "controller_id");
  const Json::Value credential = Member(json, "cred_id");
  const Json::Value port = Member(json, "replica_port");
  const Json::Value address = Member(json, "replica_addr");
  if (!controller.isInt() || !credential.isString() || !port.isInt() || !address.isString()) {
    return false;
  }
  if (port.asInt() < 1 || port.asInt() > kHighestPort) return false;
  controller_id_ = controller.asInt();
  cred_id_ = credential.asString();
  replica_port_ = port.asInt();
  replica_addr_ = address.asString();
  return true;
}

Json::Value PlanRemoteConn::ToJson() const {
  Json::Value json(Json::objectValue);
  json["controller_id"] = controller_id_;
  json["cred_id"] = cred_id_;
  json["replica_port"] = replica_port_;
  json["replica_addr"] = replica_addr_;
  return json;
}

Json::Value DataSyncParam::ToJson() const {
  Json::Value json(Json::objectValue);
  json["with_pending"] = with_pending;
  json["is_full"] = is_full;
  json["stop_source"] = stop_source;
  json["is_encrypted"] = is_encrypted;
  Json::Value& kept = json["meta"];
  kept["description"] = meta.description;
  kept["is_locked"] = meta.is_locked;
  kept["is_app_consistent"] = meta.is_app_consistent;
  kept["taken_by"] = meta.taken_by;
  return json;
}

bool DataSyncParam::FromJson(const Json::Value& json) {
  if (!json.isObject() && !json.isNull()) return false;
  Utils::ParseJsonValueFromField(json, "with_pending", with_pending);
  Utils::ParseJsonValueFromField(json, "is_full", is_full);
  Utils::ParseJsonValueFromField(json, "stop_source", stop_source);
  Utils::ParseJsonValueFromField(json, "is_encrypted", is_encrypted);
  const Json::Value kept = Member(json, "meta");
  Utils::ParseJsonValueFromField(kept, "description", meta.description);
  Utils::ParseJsonValueFromField(kept, "is_locked", meta.is_locked);
  Utils::ParseJsonValueFromField(kept, "is_app_consistent", meta.is_app_consistent);
  Utils::ParseJsonValueFromField(kept, "taken_by", meta.taken_by);
  return true;
}

namespace Utils {

std::string ToString(DRPlanOPStatus status) {
  switch (status) {
    case kOpNone:
      return {};
    case kOpCreate:
      return "create";
    case kOpSync:
      return "sync";
    case kOpStop:
      return "stop";
    case kOpDelete:
      return "delete";
    case kOpEdit:
      return "edit";
    case kOpPromote:
      return "promote";
    case kOpSwitchover:
      return "switchover";
    case kOpFailover:
      return "failover";
    case kOpReprotect:
      return "reprotect";
  }
  return {};
}

}  // namespace Utils

std::string GetRetentionLocker(const std::string& planId) {
  return "plan " + planId;
}

}  // namespace VrelDR
