#include "groups/catalogue_view.h"

#include <vreldrgroup/snapshot/gsnap_op.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace Op = VrelDRGroup::Operation;

std::vector<std::string> ConsistencyNames() {
  return {"unspecified", "crash", "application"};
}

std::string ConsistencyName(VrelDRGroup::GsnapCwType type) {
  const std::vector<std::string> names = ConsistencyNames();
  const int number = type;
  if (number < 0 || number >= static_cast<int>(names.size())) {
    return "unknown [" + std::to_string(number) + "]";
  }
  return names[static_cast<std::size_t>(number)];
}

VrelDRGroup::GsnapCwType ConsistencyNumber(const std::string& name) {
  for (int number = VrelDRGroup::kCwApplicationConsistent; number > 0; --number) {
    const auto type = static_cast<VrelDRGroup::GsnapCwType>(number);
    if (ConsistencyName(type) == name) return type;
  }
  return VrelDRGroup::kCwUnspecified;
}

std::vector<Column> GsnapColumns() {
  return {{"gsnap_id", "SNAPSHOT"},       {"name", "NAME"},
          {"status", "STATUS"},           {"is_locked", "LOCKED"},
          {"consistency", "CONSISTENCY"}, {"target_count", "TARGETS"},
          {"description", "DESCRIPTION"}};
}

Json::Value GsnapRow(const VrelDRGroup::Gsnapshot& gsnap) {
  Json::Value row(Json::objectValue);
  row["gsnap_id"] = gsnap.gsnap_id;
  row["name"] = VrelDRGroup::TimestampToGMTStr(gsnap.gsnap_time);
  row["time"] = Json::Int64(gsnap.gsnap_time);
  row["status"] = VrelDRGroup::ToString(gsnap.status);
  row["is_locked"] = gsnap.is_user_locked;
  row["consistency"] = ConsistencyName(gsnap.cw_type);
  row["description"] = gsnap.desc;
  return row;
}

std::vector<std::string> ListGsnapIds(const std::string& groupId) {
  std::vector<std::string> ids;
  if (!Op::GsnapshotIdList(groupId, ids)) {
    throw CatalogueFailure(groupId, "cannot list its snapshots");
  }
  return ids;
}

std::vector<VrelDRGroup::Gsnapshot> ListGsnaps(const std::string& groupId, bool latestOnly) {
  std::vector<VrelDRGroup::Gsnapshot> gsnaps;
  if (!Op::GsnapshotList(groupId, gsnaps, latestOnly)) {
    throw CatalogueFailure(groupId, "cannot list its snapshots");
  }
  return gsnaps;
}

VrelDRGroup::GsnapshotInfo RequireGsnap(const std::string& gsnapId) {
  const std::string groupId = VrelDRGroup::Utils::ParseGroupId(gsnapId);
  RequireCatalogue(groupId, Access::kRead);
  VrelDRGroup::GsnapshotInfo info("");
  if (Op::GsnapshotInfoGet(gsnapId, info)) return info;
  const CatalogueRows rows(groupId);
  const std::string named = "group snapshot " + Quote(gsnapId);
  if (rows.IsListed(gsnapId)) throw CatalogueFailure(groupId, "cannot read " + named);
  if (rows.HasParts(gsnapId)) {
    throw Failure(ExitCode::kCatalogue,
                  named +
                      " is recorded only in part, as after an interrupted creation or "
                      "deletion: it cannot be used, and its target snapshots may still exist");
  }
  throw Failure(ExitCode::kNotFound, "there is no " + named + ": name one that \"drgroupctl " +
                                         "snapshot list " + groupId + "\" shows");
}

Json::Value TargetSnapshotRows(const VrelDRGroup::GsnapshotInfo& info) {
  Json::Value rows(Json::arrayValue);
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    const SnapshotState state = AskSnapshot(each.target, each.tsnap_id);
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target.GetId();
    row["type"] = TypeName(each.target.GetType());
    row["tsnap_id"] = each.tsnap_id;
    // Null when the host cannot tell.
    row["exists"] = state.presence == Presence::kUnknown
                        ? Json::Value()
                        : Json::Value(state.presence == Presence::kPresent);
    row["problem"] = state.problem;
    row["path"] = state.path;
    rows.append(row);
  }
  return rows;
}

std::vector<Column> TargetSnapshotColumns() {
  return {{"target_id", "TARGET"}, {"type", "TYPE"}, {"tsnap_id", "TARGET SNAPSHOT"},
          {"exists", "EXISTS"},    {"path", "PATH"}, {"problem", "PROBLEM", Shown::kIfAny}};
}

}  // namespace drgroupctl
