#pragma once

#include <vreldrcore/err_recorder.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <map>
#include <set>
#include <string>

#include "command/verb.h"
#include "groups/group_store.h"
#include "groups/gsnap_cut.h"

namespace drgroupctl {

class Warnings;

// The option that says how consistent a new group snapshot has to be.
inline constexpr char kRequire[] = "--require";
Parameter RequireOption(const char* summary);

// Throws, behind `failed`, when the cut is less than what the option asks for.
void RequireConsistency(const Group& group, const GsnapCut& cut, const std::string& failed,
                        const Arguments& args);

// Throws unless the group's catalogue can take a group snapshot that is recorded from now on, under
// a name of its own. `failed` says what was not done. Nobody is to be held for what could not be
// recorded.
void RequireRoomForGsnap(const Group& group, const std::string& failed);

// The making of a group snapshot of a cut of the group's targets. The group's lock is held.
class GsnapMaking {
 public:
  // Throws unless every target is there and can be asked, and as RequireRoomForGsnap does.
  explicit GsnapMaking(const Group& group);

  // Takes up the snapshots of the cut that was prepared since, and records them. A failure, which
  // is thrown, leaves none recorded, and what was taken is deleted again as far as that can be.
  VrelDRGroup::GsnapshotInfo Make(const VrelDRGroup::GsnapMeta& meta, Warnings& warnings) const;

 private:
  const Group& group_;
  // The snapshots that the targets had before, where this process has no mark of its own for those
  // that it takes.
  std::map<VrelDR::Target, std::set<std::string>> before_;
};

}  // namespace drgroupctl
