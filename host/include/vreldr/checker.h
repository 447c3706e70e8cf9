#pragma once

#include <string>

#include "vrelcore/export.h"
#include "vreldr/operation.h"

// What finds out beforehand whether an operation on a plan would be refused. A checker fails with
// the code and the message that its operation would fail with at this moment, and changes nothing.
namespace VrelDR::Checker {

class VREL_API PlanSyncChecker : public DROperation {
 public:
  explicit PlanSyncChecker(const std::string& planId);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
};

// Of a deletion that keeps all data.
class VREL_API PlanDeleteChecker : public DROperation {
 public:
  explicit PlanDeleteChecker(const std::string& planId);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
};

class VREL_API PlanSwitchoverChecker : public DROperation {
 public:
  explicit PlanSwitchoverChecker(const std::string& planId);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
};

// Of a failover to the last snapshot that arrived.
class VREL_API PlanFailoverChecker : public DROperation {
 public:
  explicit PlanFailoverChecker(const std::string& planId);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
};

class VREL_API PlanReprotectChecker : public DROperation {
 public:
  PlanReprotectChecker(const std::string& planId, const std::string& siteId);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
  std::string site_id_;
};

}  // namespace VrelDR::Checker
