#include "groups/last_restore.h"

#include <vreldrcore/json.h>

namespace drgroupctl {

namespace {

constexpr char kGsnapId[] = "gsnap_id";
constexpr char kBeforeId[] = "before_id";
constexpr char kIsUnfinished[] = "is_unfinished";
constexpr char kIsUndo[] = "is_undo";

void Rename(std::string& gsnapId, const std::string& oldId, const std::string& newId) {
  const std::string prefix = oldId + "-gsnap-";
  if (gsnapId.starts_with(prefix)) gsnapId.replace(0, oldId.size(), newId);
}

}  // namespace

std::string LastRestore::ClaimOn(const std::string& gsnapId) const {
  if (gsnapId == before_id) return "it undoes the last restore";
  if (is_unfinished && gsnapId == gsnap_id) return "its restore has not come to its end";
  return {};
}

void LastRestore::RenameGroup(const std::string& oldId, const std::string& newId) {
  Rename(gsnap_id, oldId, newId);
  Rename(before_id, oldId, newId);
}

Json::Value LastRestore::ToJson() const {
  Json::Value json(Json::objectValue);
  json[kGsnapId] = gsnap_id;
  json[kBeforeId] = before_id;
  json[kIsUnfinished] = is_unfinished;
  json[kIsUndo] = is_undo;
  return json;
}

bool LastRestore::FromJson(const Json::Value& json, std::string& problem) {
  using VrelDRCore::JsonUtil::Member;
  const bool isGood = Member(json, kGsnapId).isString() && Member(json, kBeforeId).isString() &&
                      Member(json, kIsUnfinished).isBool() && Member(json, kIsUndo).isBool();
  if (!isGood || Member(json, kGsnapId).asString().empty()) {
    problem =
        "it needs the texts \"gsnap_id\" and \"before_id\", the first not empty, and true or false "
        "for \"is_unfinished\" and \"is_undo\"";
    return false;
  }
  gsnap_id = Member(json, kGsnapId).asString();
  before_id = Member(json, kBeforeId).asString();
  is_unfinished = Member(json, kIsUnfinished).asBool();
  is_undo = Member(json, kIsUndo).asBool();
  return true;
}

}  // namespace drgroupctl
