#include "vreldr/utils.h"

#include "vreldrcore/json.h"

namespace VrelDR::Utils {

using VrelDRCore::JsonUtil::Member;

template <>
void ParseJsonValueFromField(const Json::Value& object, const std::string& key, std::string& out) {
  const Json::Value value = Member(object, key);
  if (value.isString()) out = value.asString();
}

template <>
void ParseJsonValueFromField(const Json::Value& object, const std::string& key, bool& out) {
  const Json::Value value = Member(object, key);
  if (value.isBool()) out = value.asBool();
}

// isInt and isInt64 are false for numbers that do not fit and for those with a fraction.
template <>
void ParseJsonValueFromField(const Json::Value& object, const std::string& key, int& out) {
  const Json::Value value = Member(object, key);
  if (value.isInt()) out = value.asInt();
}

template <>
void ParseJsonValueFromField(const Json::Value& object, const std::string& key, long& out) {
  const Json::Value value = Member(object, key);
  if (value.isInt64()) out = value.asInt64();
}

std::string ToString(long value) {
  return std::to_string(value);
}

std::string ToString(DRProtectedTargetType type) {
  switch (type) {
    case kTargetLun:
      return "lun";
    case kTargetShare:
      return "share";
    case kTargetGuest:
      return "guest";
  }
  return "unknown";
}

}  // namespace VrelDR::Utils
