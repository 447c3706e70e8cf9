#include "host/in_use.h"

#include <set>

#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDR::TargetUser;

std::string NameOf(TargetUser::Kind kind) {
  switch (kind) {
    case TargetUser::Kind::kOpenFile:
      return "open file";
    case TargetUser::Kind::kMappedFile:
      return "mapped file";
    case TargetUser::Kind::kLoopDevice:
      return "loop device";
    case TargetUser::Kind::kSwapFile:
      return "swap file";
    default:
      return "mount";
  }
}

Json::Value RowOf(const std::string& target, const TargetUser& user) {
  Json::Value row(Json::objectValue);
  row["target_id"] = target;
  row["kind"] = NameOf(user.kind);
  row["is_writer"] = user.is_writer;
  row["pid"] = user.pid;
  row["program"] = user.program;
  row["path"] = user.path;
  row["through"] = user.through;
  row["mounted_on"] = user.mounted_on;
  row["text"] = user.Text();
  return row;
}

}  // namespace

InUse::InUse(const std::vector<PlannedUse>& planned, const Arguments& args) {
  if (args.Has("--in-use")) why_ = "as --in-use says";
  std::set<std::string> ids;
  for (const PlannedUse& each : planned) ids.insert(each.target);
  if (ids.empty()) return;
  const VrelDR::TargetUsersFinder finder;
  std::vector<VrelDR::TargetUsers> answers;
  if (!finder.Find({ids.begin(), ids.end()}, answers, unseen_)) ThrowHostError(finder);
  for (const PlannedUse& each : planned) {
    for (const VrelDR::TargetUsers& answer : answers) {
      if (answer.target_id == each.target) Judge(each, answer);
    }
  }
}

void InUse::Judge(const PlannedUse& planned, const VrelDR::TargetUsers& answer) {
  const std::string about = "target " + Quote(planned.target);
  if (answer.code == VrelDR::kErrTargetMissing || answer.code == VrelDR::kErrVolumeMissing) return;
  if (answer.code != VrelDR::kErrNone) {
    reasons_.push_back({planned.target, FromHostError(answer.code),
                        about + " may be in use: " + Printable(answer.problem)});
    return;
  }
  std::vector<TargetUser> users;
  for (const TargetUser& each : answer.users) {
    if (!VrelDR::IsInTheWay(each, planned.use)) continue;
    users.push_back(each);
    rows_.append(RowOf(planned.target, each));
  }
  if (users.empty()) return;
  reasons_.push_back({planned.target, FromHostError(VrelDR::kErrInUse),
                      about + " is in use: " + Printable(VrelDR::TextOf(users))});
}

void InUse::Require(const std::string& title) const {
  if (reasons_.empty() || IsGoneOn()) return;
  std::vector<std::string> texts;
  for (const Reason& each : reasons_) texts.push_back(each.text);
  Failure failure(reasons_.front().code,
                  title + " is refused, nothing was done: " + Join(texts, "; ") + kInUseAdvice);
  failure.details["target_id"] = reasons_.front().target;
  failure.details["users"] = rows_;
  AddTo(failure.report);
  throw failure;
}

void InUse::Warn(Warnings& warnings) const {
  for (const Reason& each : reasons_) {
    warnings.Print(each.text + "; going on, " + why_ +
                   ": what is written there from now on may be lost");
  }
  for (const std::string& each : unseen_) {
    warnings.Print("who uses the targets was looked for, but not " + Printable(each));
  }
}

void InUse::AddTo(Report& report) const {
  if (rows_.empty()) return;
  report.AddTable({"users", "In use"}, {{"target_id", "TARGET"}, {"text", "BY WHOM"}}, rows_);
}

}  // namespace drgroupctl
