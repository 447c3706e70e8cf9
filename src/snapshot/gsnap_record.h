#pragma once

#include <vreldr/target.h>
#include <vreldrcore/err_recorder.h>

#include <string>
#include <vector>

#include "vreldrgroup/record/gsnapshot.h"
#include "vreldrgroup/record/target_group.h"

// What the operations that record a new group snapshot have in common: how they begin and end.
namespace VrelDRGroup::Operation {

// Whom the log lines are from: a source unit and a function of it.
struct LogSource {
  const char* unit;
  const char* function;
};

// Checks the group, makes its catalogue usable and begins its snapshot; puts the group's targets
// into `targets`. A failure is recorded in `op`, as is 407 for what comes next.
bool BeginGroupSnapshot(LogSource source, const VrelDRCore::ErrRecorder& op,
                        const TargetGroup& group, const GsnapMeta& meta, const std::string& dbDir,
                        Gsnapshot& gsnapshot, std::vector<VrelDR::Target>& targets);

// Writes the group's row, the last one: with it the group snapshot is there. A failure is recorded
// in `op`.
bool FinishGroupSnapshot(LogSource source, const VrelDRCore::ErrRecorder& op,
                         const TargetGroup& group, const std::string& dbDir,
                         const Gsnapshot& gsnapshot);

}  // namespace VrelDRGroup::Operation
