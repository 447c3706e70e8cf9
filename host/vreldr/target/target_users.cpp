#include "target/target_users.h"

#include <algorithm>
#include <map>

namespace VrelDR {

namespace {

thread_local int allowances = 0;  // InUseAllowed that live in this thread

// The targets of one volume, and where their answers are.
struct OfVolume {
  const StorageEngine* engine = nullptr;
  std::vector<TargetPlace> places;
  std::vector<std::size_t> answers;
};

void Fail(TargetUsers& answer, const Status& status) {
  answer.code = status.code;
  answer.problem = status.message;
}

Status Locate(Host& host, const std::string& targetId, HostTarget& target) {
  std::optional<TargetRow> row;
  Status status = host.store->GetTarget(targetId, row);
  if (!status.IsOk()) return status;
  return row ? target.Adopt(*row) : NoSuchTarget(targetId);
}

}  // namespace

InUseAllowed::InUseAllowed() {
  ++allowances;
}

InUseAllowed::~InUseAllowed() {
  --allowances;
}

bool InUseAllowed::IsSaid() {
  return allowances > 0;
}

void FindUsersOf(Host& host, const std::vector<std::string>& targetIds,
                 std::vector<TargetUsers>& answers, std::set<std::string>& unseen) {
  std::map<std::string, OfVolume> volumes;
  for (const std::string& id : targetIds) {
    answers.push_back({id, {}, kErrNone, {}});
    HostTarget target(host);
    const Status status = Locate(host, id, target);
    if (!status.IsOk()) {
      Fail(answers.back(), status);
      continue;
    }
    OfVolume& volume = volumes[target.GetRow().volume];
    volume.engine = &target.GetEngine();
    volume.places.push_back(target.GetPlace());
    volume.answers.push_back(answers.size() - 1);
  }
  for (auto& [name, volume] : volumes) {
    UsersSeen seen;
    const Status status = InContext("cannot find out who uses targets on volume " + Quoted(name),
                                    volume.engine->FindUsers(volume.places, seen, host.watcher));
    for (const std::size_t at : volume.answers) {
      answers[at].users = seen.users[answers[at].target_id];
      if (!status.IsOk()) Fail(answers[at], status);
    }
    unseen.insert(seen.unseen.begin(), seen.unseen.end());
  }
}

Status CheckUnused(Host& host, const std::string& targetId, PlaceUse use) {
  std::vector<TargetUsers> answers;
  std::set<std::string> unseen;
  FindUsersOf(host, {targetId}, answers, unseen);
  TargetUsers& answer = answers.front();
  if (answer.code != kErrNone) return {answer.code, answer.problem};
  std::erase_if(answer.users, [use](const TargetUser& each) { return !IsInTheWay(each, use); });
  if (answer.users.empty()) return {};
  return {kErrInUse, "target " + Quoted(targetId) + " is in use: " + TextOf(answer.users) +
                         "; stop that and run it again"};
}

}  // namespace VrelDR
