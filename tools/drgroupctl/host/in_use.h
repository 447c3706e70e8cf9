#pragma once

#include <json/value.h>
#include <vreldr/target_users.h>

#include <string>
#include <vector>

#include "command/verb.h"
#include "output/exit_code.h"
#include "output/report.h"

namespace drgroupctl {

class Warnings;

// What is about to be done to the place of a target.
struct PlannedUse {
  std::string target;
  VrelDR::PlaceUse use;
};

// Who has targets open that something is about to be done to, and is in the way of that.
class InUse {
 public:
  // Asks about all of them at once. A target that is not there is in nobody's use, and neither is
  // one whose volume is not there: nothing can be done to it either. With --in-use it is gone on
  // over all.
  InUse(const std::vector<PlannedUse>& planned, const Arguments& args);
  // It is gone on over all, for this reason.
  void GoOn(const std::string& why) { why_ = why; }
  bool IsGoneOn() const { return !why_.empty(); }

  // One target that is in use, or of which that could not be found out.
  struct Reason {
    std::string target;
    ExitCode code;
    std::string text;  // which target, by whom
  };
  const std::vector<Reason>& Reasons() const { return reasons_; }

  // Throws when there is a reason and it is not gone on over it. `title` is what is refused.
  void Require(const std::string& title) const;
  // Says what is gone on over, and what could not be looked at.
  void Warn(Warnings& warnings) const;
  // Everybody that is in the way, for programs.
  const Json::Value& Rows() const { return rows_; }
  // Adds them to a report when there are any: the table "users".
  void AddTo(Report& report) const;

 private:
  void Judge(const PlannedUse& planned, const VrelDR::TargetUsers& answer);

  std::string why_;  // it is gone on; empty when it is not
  std::vector<Reason> reasons_;
  std::vector<std::string> unseen_;
  Json::Value rows_ = Json::Value(Json::arrayValue);
};

// What to do about a reason.
inline constexpr char kInUseAdvice[] = "; stop that, or add --in-use to go on over it";

}  // namespace drgroupctl
