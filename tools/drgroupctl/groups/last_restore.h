#pragma once

#include <json/value.h>

#include <string>

namespace drgroupctl {

// The last restore of a group, as its definition keeps it: what it was of, and what undoes it. It
// is written before the first target is replaced, and once more when all of them are.
struct LastRestore {
  std::string gsnap_id;   // of what; empty when there was none yet
  std::string before_id;  // what the targets held before; empty when that was not kept
  bool is_unfinished = false;
  bool is_undo = false;  // it undoes the one before it

  bool IsNone() const { return gsnap_id.empty(); }
  // Why a pruning lets the group snapshot stay; empty when this is against nothing.
  std::string ClaimOn(const std::string& gsnapId) const;
  // Names the group snapshots as they are called when the group is.
  void RenameGroup(const std::string& oldId, const std::string& newId);

  Json::Value ToJson() const;
  // Says what is wrong in `problem`, and then changes nothing.
  bool FromJson(const Json::Value& json, std::string& problem);

  bool operator==(const LastRestore&) const = default;
};

}  // namespace drgroupctl
