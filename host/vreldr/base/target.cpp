#include "vreldr/target.h"

#include "vreldr/utils.h"

namespace VrelDR {

Json::Value Target::ToJson() const {
  Json::Value json(Json::objectValue);
  json["target_id"] = id_;
  json["target_type"] = type_;
  return json;
}

bool Target::FromJson(const Json::Value& json) {
  if (!json.isObject() && !json.isNull()) return false;
  Utils::ParseJsonValueFromField(json, "target_id", id_);
  Utils::ParseJsonValueFromField(json, "target_type", type_);
  return true;
}

}  // namespace VrelDR
