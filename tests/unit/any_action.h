#pragma once

#include <gtest/gtest.h>
#include <vreldrgroup/replication/replica.h>

#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace unit {

// One action, whichever it is.
struct AnyAction {
  std::function<std::string()> GetTaskName;
  std::function<int(const std::set<std::string>&, Json::Value&)> PreAct;
  std::function<std::unique_ptr<VrelDR::DROperation>(const std::string&, int&)> GenOperation;
  std::function<int(std::set<std::string>&)> Revert;
};

template <class Tag>
AnyAction MakeAction() {
  const auto action = std::make_shared<VrelDRGroup::ActionPolicy::ActionImpl<Tag>>();
  return {[=] { return action->GetTaskName(); },
          [=](const std::set<std::string>& targets, Json::Value& params) {
            return action->PreAct(targets, params);
          },
          [=](const std::string& target, int& err) { return action->GenOperation(target, err); },
          [=](std::set<std::string>& targets) { return action->Revert(targets); }};
}

// A kind of action, for tables. Tests that are made of a table bear its name.
struct Tag {
  std::string name;
  AnyAction (*make)() = nullptr;
};

#define TAG(name) (unit::Tag{#name, unit::MakeAction<VrelDRGroup::ActionPolicy::name>})

inline std::ostream& operator<<(std::ostream& out, const Tag& tag) {
  return out << tag.name;
}

// All of them.
inline const std::vector<Tag>& AllTags() {
  static const std::vector<Tag> tags = {
      TAG(CreatePartial),
      TAG(Create),
      TAG(Sync),
      TAG(Del),
      TAG(Stop),
      TAG(Switchover),
      TAG(Failover),
      TAG(Reprotect),
      TAG(EditPrepare),
      TAG(EditCleanup),
      TAG(SyncChecker),
      TAG(DelChecker),
      TAG(SwitchoverChecker),
      TAG(FailoverChecker),
      TAG(ReprotectChecker),
      TAG(TmpCreate),
      TAG(TmpSync),
      TAG(TmpSyncStop),
      TAG(TmpSwitchover),
      TAG(TmpDel),
  };
  return tags;
}

// Names a test of a table's row after its tag, and its number where a tag has several rows.
template <class Row>
std::string RowName(const testing::TestParamInfo<Row>& info) {
  return info.param.tag.name + "_" + std::to_string(info.index);
}
inline std::string TagName(const testing::TestParamInfo<Tag>& info) {
  return info.param.name;
}

}  // namespace unit
