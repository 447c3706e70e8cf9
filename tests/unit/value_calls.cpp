// Calls of the host's value types that a test wants to see, or to fail: this program's own ones
// write them down in the script, as the scripted host does, and hand them on to the real ones.
#include <vreldr/plan.h>

#include "current.h"
#include "real_call.h"
#include "text.h"

namespace VrelDR {

using scripted_host::Call;
using scripted_host::Record;

bool PlanRemoteConn::FromJson(const Json::Value& json) {
  const std::string call = Call("PlanRemoteConn::FromJson", json);
  Record(call);
  if (scripted_host::Fails(call) != nullptr) return false;
  return unit::Real<bool(PlanRemoteConn*, const Json::Value&)>(
      "_ZN6VrelDR14PlanRemoteConn8FromJsonERKN4Json5ValueE")(this, json);
}

std::string GetRetentionLocker(const std::string& planId) {
  Record(Call("GetRetentionLocker", planId));
  return unit::Real<std::string(const std::string&)>(
      "_ZN6VrelDR18GetRetentionLockerERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE")(
      planId);
}

}  // namespace VrelDR
