#include "engine/cut.h"

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "fake_engine.h"

namespace VrelDR::Fake {

namespace fs = std::filesystem;

namespace {

// Says that a snapshot of a cut was settled.
constexpr const char* kSettled = "settled";

const FakeEngine& EngineOf(const CutMember& member) {
  return static_cast<const FakeEngine&>(*member.engine);
}

}  // namespace

// One copy after the other. Refuses calls that come twice or in another order.
class FakeCut : public EngineCut {
 public:
  explicit FakeCut(std::vector<CutMember> members) : members_(std::move(members)) {}

  bool MayBeOneInstant() const override { return false; }
  Status Take(Watcher& watcher, CutOutcome& outcome) override {
    if (was_taken_) return {kErrUnsupported, "a cut is taken once"};
    was_taken_ = true;
    outcome.method = "plain files";
    outcome.tries = 1;
    outcome.begin = std::chrono::steady_clock::now();
    Status status;
    for (const CutMember& each : members_) {
      if (status.IsOk()) status = EngineOf(each).TakeMember(each, watcher);
    }
    outcome.end = std::chrono::steady_clock::now();
    return status;
  }

  Status Settle(Watcher& watcher) override {
    if (!was_taken_) return {kErrUnsupported, "a cut is taken before it is settled"};
    Status status;
    for (const CutMember& each : members_) {
      if (status.IsOk()) status = EngineOf(each).SettleMember(each, watcher);
    }
    return status;
  }

 private:
  std::vector<CutMember> members_;
  bool was_taken_ = false;
};

Status FakeEngine::CheckMember(const CutMember& member, Watcher& watcher) const {
  return OnStore(store_, watcher, [&]() -> Status {
    State state;
    Status status = FailPoint(kFailTake, member.place.id);
    if (status.IsOk()) status = LoadToChange(member.place, state);
    if (!status.IsOk()) return status;
    if (state.part == Part::kReplica) {
      return {kErrUnsupported, "target " + Quoted(member.place.id) +
                                   " is a replica, of which no snapshots are taken; promote it"};
    }
    const fs::path snapshot = store_.SnapshotOf(member.place, member.snapId);
    if (fs::exists(snapshot)) return {kErrExists, Quoted(snapshot) + " is there already"};
    return {};
  });
}

Status FakeEngine::TakeMember(const CutMember& member, Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    Watch watch(watcher);
    Status status = FailPoint(kFailCut, member.place.id);
    return status.IsOk() ? Build(member.place, member.snapId, watch) : status;
  });
}

Status FakeEngine::SettleMember(const CutMember& member, Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    store_.Write(store_.SnapshotOf(member.place, member.snapId) / kSettled, {});
    return Status();
  });
}

Status FakeEngine::GetCutDomain(std::string& domain, Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    domain = store_.GetPath();
    return Status();
  });
}

Status FakeEngine::PrepareCut(const std::vector<CutMember>& members, Watcher& watcher,
                              std::unique_ptr<EngineCut>& cut) const {
  Status status;
  for (const CutMember& each : members) {
    const FakeEngine& engine = EngineOf(each);
    if (status.IsOk() && engine.store_.GetPath() != store_.GetPath()) {
      return {kErrUnsupported, "the members of a cut are of one domain"};
    }
    if (status.IsOk()) status = engine.CheckMember(each, watcher);
  }
  if (status.IsOk()) cut = std::make_unique<FakeCut>(members);
  return status;
}

Status FakeEngine::TakeUp(const TargetPlace& place, const std::string& snapId,
                          Watcher& watcher) const {
  return OnStore(store_, watcher, [&]() -> Status {
    Status status = FailPoint(kFailTakeUp, place.id);
    if (status.IsOk()) status = store_.CheckWritable();
    if (!status.IsOk()) return status;
    const fs::path snapshot = store_.SnapshotOf(place, snapId);
    if (!fs::exists(snapshot / kSettled)) {
      return {kErrSnapshotMissing, "no cut has settled " + Quoted(snapshot)};
    }
    store_.Write(snapshot / "whole", {});
    KillPoint(kTakeRenamed);
    return {};
  });
}

}  // namespace VrelDR::Fake
