#pragma once

#include <json/value.h>

#include <string>
#include <utility>

#include "vrelcore/export.h"

namespace VrelDR {

// The kinds of protected target. Kept on disk: never change a value.
enum DRProtectedTargetType : int {
  kTargetLun = 1,
  kTargetShare = 2,
  kTargetGuest = 3,
};

// Names a protected target: its identifier and its kind. Says nothing about whether it exists.
class VREL_API Target {
 public:
  Target() = default;
  Target(const std::string& id, int type) : id_(id), type_(type) {}

  const std::string& GetId() const { return id_; }
  // A DRProtectedTargetType, or 0 for an empty target.
  int GetType() const { return type_; }
  void SetId(std::string id) { id_ = std::move(id); }
  void SetType(int type) { type_ = type; }

  // {"target_id": text, "target_type": number}
  Json::Value ToJson() const;
  // Takes over the members that are present and of the right kind. False when `json` is neither an
  // object nor null.
  bool FromJson(const Json::Value& json);

  // By identifier, then by kind.
  bool operator<(const Target& other) const {
    const int order = id_.compare(other.id_);
    return order != 0 ? order < 0 : type_ < other.type_;
  }
  bool operator==(const Target& other) const { return type_ == other.type_ && id_ == other.id_; }
  bool operator!=(const Target& other) const { return !(*this == other); }

 private:
  std::string id_;
  int type_ = 0;
};

}  // namespace VrelDR
