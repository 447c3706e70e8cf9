#pragma once

#include <json/value.h>
#include <json/writer.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

// The one place where JSON becomes C++ values and text. Nothing here throws: JsonCpp throws when a
// value is asked for as another kind, so the kind is looked at first. A value of the wrong kind
// reads as the empty text, false or 0; a value that is not an object has no members.
//
// Header only, so that it asks nothing of a host's binaries.
namespace VrelDRCore::JsonUtil {

inline std::string AsText(const Json::Value& value) {
  return value.isString() ? value.asString() : std::string();
}

inline bool AsBool(const Json::Value& value) {
  return value.isBool() && value.asBool();
}

inline std::uint64_t AsUInt64(const Json::Value& value) {
  return value.isUInt64() ? value.asUInt64() : 0;
}

inline std::int64_t AsInt64(const Json::Value& value) {
  return value.isInt64() ? value.asInt64() : 0;
}

inline bool HasMember(const Json::Value& object, const std::string& key) {
  return object.isObject() && object.isMember(key);
}

// The member named `key`, or null.
inline Json::Value Member(const Json::Value& object, const std::string& key) {
  return object.isObject() ? object.get(key, Json::Value()) : Json::Value();
}

// Compact text on one line, for log lines and for storage. Text is written as UTF-8, as it stands.
inline std::string ToString(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  builder["commentStyle"] = "None";
  std::ostringstream out;
  const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
  writer->write(value, &out);
  return out.str();
}

}  // namespace VrelDRCore::JsonUtil
