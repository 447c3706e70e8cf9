#pragma once

#include <json/value.h>

#include <string>

#include "vrelcore/export.h"
#include "vreldr/target.h"

namespace VrelDR::Utils {

// Stores the member `key` of `object` in `out` when it is there and of a fitting kind; leaves `out`
// alone otherwise, also when `object` is not an object. T is std::string, bool, int or long.
template <class T>
void ParseJsonValueFromField(const Json::Value& object, const std::string& key, T& out);
template <>
VREL_API void ParseJsonValueFromField(const Json::Value& object, const std::string& key,
                                      std::string& out);
template <>
VREL_API void ParseJsonValueFromField(const Json::Value& object, const std::string& key, bool& out);
template <>
VREL_API void ParseJsonValueFromField(const Json::Value& object, const std::string& key, int& out);
template <>
VREL_API void ParseJsonValueFromField(const Json::Value& object, const std::string& key, long& out);

// A number in decimal.
VREL_API std::string ToString(long value);

// "lun", "share" or "guest"; "unknown" for any other number.
VREL_API std::string ToString(DRProtectedTargetType type);

}  // namespace VrelDR::Utils
