#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include "groups/catalogue.h"
#include "groups/group_store.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// The column that the current schema has more than the one before.
constexpr char kNewColumn[] = "minor_id";

void Upgrade(const std::string& groupId) {
  const GroupLock lock(groupId);
  const Group group = LoadGroup(groupId);
  // What is missing the library would pass over.
  if (!VrelDRGroup::DRGroupDB::Get(group.directory).IsExisted()) {
    RequireCatalogue(groupId, Access::kWrite);
  }
  std::string said;
  bool upgraded = false;
  {
    const StderrCapture capture;
    upgraded = VrelDRGroup::Operation::GroupSnapMetaUpdater(kNewColumn, {groupId}) == 0;
    said = capture.FirstLine();
  }
  if (!upgraded) throw CatalogueFailure(groupId, "its catalogue was not upgraded", said);
}

Report RunGroupUpgrade(const Arguments& args, Warnings& /*warnings*/) {
  const std::vector<std::string> ids = args.Has("GROUP") ? args.List("GROUP") : ListGroupIds();
  Json::Value rows(Json::arrayValue);
  std::vector<std::string> texts;  // of failures
  ExitCode code = ExitCode::kDone;
  for (const std::string& id : ids) {
    Json::Value row(Json::objectValue);
    row["group_id"] = id;
    row["result"] = "done";
    row["problem"] = "";
    try {
      Upgrade(id);
    } catch (const Failure& failure) {  // one group's failure does not stop the others
      row["result"] = "failed";
      row["problem"] = failure.message;
      if (texts.empty()) code = failure.code;
      texts.push_back(failure.message);
    }
    rows.append(row);
  }
  if (!texts.empty()) {
    Failure failure(code, ids.size() == 1 ? texts.front()
                                          : "of " + Count(ids.size(), "group") + " " +
                                                std::to_string(ids.size() - texts.size()) +
                                                " could be upgraded: " + Join(texts, "; "));
    failure.details["groups"] = rows;
    throw failure;
  }
  Report report;
  report.AddTable({"groups", "Groups"}, {{"group_id", "GROUP"}, {"result", "RESULT"}}, rows);
  return report;
}

}  // namespace

Verb GroupUpgrade() {
  return {"group upgrade",
          "bring the catalogues of groups to the current schema",
          {"Does all groups when none is named. A group that cannot be upgraded does not stop the "
           "others. A catalogue that is current stays as it is."},
          "The schema of the groups' catalogues; columns that are new get their default.",
          {{"GROUP", Value::kGroup, "GROUP", "the groups; all when left out", false, true}},
          {},
          RunGroupUpgrade};
}

}  // namespace drgroupctl
