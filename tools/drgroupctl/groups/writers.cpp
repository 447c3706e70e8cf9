#include "groups/writers.h"

#include <vector>

#include "command/words.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

Json::Value Row(const std::string& kind, const std::string& name) {
  Json::Value row(Json::objectValue);
  row["kind"] = kind;
  row["name"] = name;
  row["thaw_command"] = "";
  row["is_app_consistent"] = false;
  return row;
}

void RequireSome(const std::string& groupId, const VrelDR::QuiesceMeans& means) {
  if (!means.IsEmpty()) return;
  throw Failure(ExitCode::kRefused, "group " + Quote(groupId) +
                                        " names no writers: name them with \"drgroupctl group "
                                        "quiesce\", and nobody is held until then");
}

std::string About(const std::string& groupId) {
  return "group " + Quote(groupId) + ": ";
}

}  // namespace

void AddWriters(Report& report, const VrelDR::QuiesceMeans& means) {
  Json::Value rows(Json::arrayValue);
  for (const std::string& each : means.control_groups) rows.append(Row("control group", each));
  for (const std::string& each : means.units) rows.append(Row("unit", each));
  for (const std::string& each : means.domains) rows.append(Row("domain", each));
  for (const VrelDR::QuiesceCommand& each : means.commands) {
    Json::Value row = Row("command", JoinWords(each.freeze));
    row["thaw_command"] = JoinWords(each.thaw);
    row["is_app_consistent"] = each.is_app_consistent;
    rows.append(row);
  }
  report.AddTable({"writers", "Writers"},
                  {{"kind", "HELD BY"},
                   {"name", "NAME"},
                   {"thaw_command", "THAW COMMAND", Shown::kIfAny},
                   {"is_app_consistent", "APPLICATION"}},
                  rows);
}

void CheckWriters(const std::string& groupId, const VrelDR::QuiesceMeans& means) {
  RequireSome(groupId, means);
  const VrelDR::WriterQuiesce quiesce(means);
  std::vector<std::string> faults;
  if (quiesce.Check(faults)) return;
  Failure failure(FromHostError(quiesce.GetErrCode()), About(groupId) + HostMessage(quiesce));
  Json::Value rows(Json::arrayValue);
  for (const std::string& each : faults) {
    failure.details["faults"].append(each);
    rows.append(Json::Value(Json::objectValue))["fault"] = each;
  }
  if (faults.size() > 1) {
    failure.message += "; and " + std::to_string(faults.size() - 1) + " more";
    failure.report.AddTable({"faults", "Faults"}, {{"fault", "FAULT"}}, rows);
  }
  throw Failure(failure);
}

VrelDR::QuiesceTrial TryWriters(const std::string& groupId, const VrelDR::QuiesceMeans& means) {
  RequireSome(groupId, means);
  const VrelDR::WriterQuiesce quiesce(means);
  VrelDR::QuiesceTrial trial;
  if (quiesce.Try(trial)) return trial;
  throw Failure(FromHostError(quiesce.GetErrCode()), About(groupId) + HostMessage(quiesce));
}

}  // namespace drgroupctl
