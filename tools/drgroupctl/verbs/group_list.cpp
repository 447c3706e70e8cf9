#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "output/failure.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// A listing does not wait for one group that is being worked on.
constexpr unsigned int kListPatience = 1;

// Fills in what can be found out of one group; what cannot stays null.
void Describe(const std::string& id, Json::Value& row) {
  const Group group = LoadGroup(id);
  row["directory"] = group.directory;
  row["target_count"] = Json::UInt64(group.targets.size());
  if (const auto problem = ExamineCatalogue(id, Access::kRead, kListPatience)) {
    throw Failure(problem->code, problem->text);
  }
  row["gsnap_count"] = Json::UInt64(CatalogueRows(id).CountGsnaps());
  const auto latest = ListGsnaps(id, true);
  row["latest_gsnap_id"] = latest.empty() ? "" : latest.front().gsnap_id;
}

Report RunGroupList(const Arguments& /*args*/, Warnings& /*warnings*/) {
  Json::Value rows(Json::arrayValue);
  for (const std::string& id : ListGroupIds()) {
    Json::Value row(Json::objectValue);
    row["group_id"] = id;
    for (const char* key : {"target_count", "gsnap_count", "latest_gsnap_id", "directory"}) {
      row[key] = Json::Value();
    }
    row["problem"] = "";
    try {
      Describe(id, row);
    } catch (const Failure& failure) {  // one bad group does not hide the others
      row["problem"] = failure.message;
    }
    rows.append(row);
  }
  Report report;
  report.AddTable({"groups", "Groups"},
                  {{"group_id", "GROUP"},
                   {"target_count", "TARGETS"},
                   {"gsnap_count", "SNAPSHOTS"},
                   {"latest_gsnap_id", "LATEST"},
                   {"directory", "DIRECTORY"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  rows);
  return report;
}

}  // namespace

Verb GroupList() {
  return {"group list",
          "list the groups",
          {"A group that cannot be used is listed with the reason."},
          "Nothing.",
          {},
          {},
          RunGroupList};
}

}  // namespace drgroupctl
