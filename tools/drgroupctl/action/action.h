#pragma once

#include <json/value.h>
#include <vreldr/operation.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace drgroupctl {

// One run of an action on a group, whichever it is. The calls promise what those of the library's
// ActionImpl do, and are to be made in the same order.
class Action {
 public:
  Action() = default;
  Action(const Action&) = delete;
  Action& operator=(const Action&) = delete;
  virtual ~Action() = default;

  virtual std::string GetTaskName() = 0;
  virtual int PreAct(const std::set<std::string>& targets, Json::Value& params) = 0;
  virtual std::unique_ptr<VrelDR::DROperation> GenOperation(const std::string& target,
                                                            int& err) = 0;
  virtual int Revert(std::set<std::string>& targets) = 0;
};

// An action of the library.
template <class Impl>
class LibraryAction : public Action {
 public:
  std::string GetTaskName() override { return impl_.GetTaskName(); }
  int PreAct(const std::set<std::string>& targets, Json::Value& params) override {
    return impl_.PreAct(targets, params);
  }
  std::unique_ptr<VrelDR::DROperation> GenOperation(const std::string& target, int& err) override {
    return impl_.GenOperation(target, err);
  }
  int Revert(std::set<std::string>& targets) override { return impl_.Revert(targets); }

 private:
  Impl impl_;
};

// Operations that the library has no action for, one for each target as `make` says. `revert`
// undoes them as an action's Revert does; without it nothing is undone.
class DirectAction : public Action {
 public:
  using Make = std::function<std::unique_ptr<VrelDR::DROperation>(const std::string& target)>;
  using Undo = std::function<int(std::set<std::string>& targets)>;

  DirectAction(std::string taskName, Make make, Undo revert = {})
      : taskName_(std::move(taskName)), make_(std::move(make)), revert_(std::move(revert)) {}

  std::string GetTaskName() override { return taskName_; }
  int PreAct(const std::set<std::string>& /*targets*/, Json::Value& /*params*/) override {
    return 0;
  }
  std::unique_ptr<VrelDR::DROperation> GenOperation(const std::string& target,
                                                    int& /*err*/) override {
    return make_(target);
  }
  int Revert(std::set<std::string>& targets) override {
    if (revert_) return revert_(targets);
    targets.clear();
    return 0;
  }

 private:
  std::string taskName_;
  Make make_;
  Undo revert_;
};

}  // namespace drgroupctl
