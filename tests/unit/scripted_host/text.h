#pragma once

#include <vreldr/plan.h>
#include <vreldrcore/json.h>

#include <string>
#include <vector>

// Values as the arguments of a call that is written down. An empty text stands as "".
namespace scripted_host {

inline std::string Text(const std::string& value) {
  return value.empty() ? "\"\"" : value;
}
inline std::string Text(const char* value) {
  return Text(std::string(value));
}
inline std::string Text(bool value) {
  return value ? "true" : "false";
}
inline std::string Text(int value) {
  return std::to_string(value);
}
inline std::string Text(const Json::Value& value) {
  return VrelDRCore::JsonUtil::ToString(value);
}
inline std::string Text(const VrelDR::PlanRemoteConn& conn) {
  return Text(conn.ToJson());
}
inline std::string Text(const VrelDR::DataSyncParam& param) {
  return Text(param.ToJson());
}
inline std::string Text(const VrelDR::AsyncSchedulePolicy& schedule) {
  return schedule.IsEnabled() ? "enabled" : "disabled";
}
inline std::string Text(const std::vector<VrelDR::PlanRemoteConn>& conns) {
  std::string text;
  for (const VrelDR::PlanRemoteConn& conn : conns) text += (text.empty() ? "" : ", ") + Text(conn);
  return "[" + text + "]";
}
// [identifier, protected target and its type, solution type, schedule mode, both sites, status]
inline std::string Text(const VrelDR::DRPlan& plan) {
  return "[" + Text(plan.GetPlanId()) + ", " + Text(plan.GetProtectedTargetId()) + " " +
         Text(plan.GetProtectedTargetType()) + ", " + Text(plan.GetSolutionType()) + ", " +
         Text(plan.GetScheduleMode()) + ", " + Text(plan.GetMainSite()) + ", " +
         Text(plan.GetDRSite()) + ", " + Text(plan.GetStatus()) + "]";
}

// "Name(argument, argument)"
template <class... Arguments>
std::string Call(const std::string& name, const Arguments&... arguments) {
  std::string list;
  ((list += (list.empty() ? "" : ", ") + Text(arguments)), ...);
  return name + "(" + list + ")";
}

}  // namespace scripted_host
