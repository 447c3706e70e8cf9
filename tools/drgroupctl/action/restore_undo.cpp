#include "action/restore_undo.h"

#include <vreldr/cut.h>

#include "action/group_cut.h"
#include "action/gsnap_making.h"
#include "groups/catalogue_view.h"
#include "groups/gsnap_cut.h"
#include "host/copy_warning.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

VrelDRGroup::GsnapshotInfo MakeBefore(const Group& replaced, const std::string& gsnapId,
                                      bool isInUse, Warnings& warnings) {
  const GsnapMaking making(replaced);
  for (const VrelDR::Target& target : replaced.targets) {
    RequirePlace(target.GetId(), VrelDR::PlaceUse::kSnapshot);
  }
  WarnOfMounts(warnings, replaced.targets);
  VrelDR::Cut cut;
  PrepareCut(replaced, replaced.targets, "no group snapshot was made", cut, warnings);
  const VrelDRGroup::GsnapMeta meta("before restore of " + gsnapId, false,
                                    ConsistencyOf(CutOf(cut.GetInfo())));
  VrelDRGroup::GsnapshotInfo made = making.Make(meta, warnings);
  if (isInUse) WarnOfSkew(replaced, replaced.targets, cut.GetInfo(), warnings);
  return made;
}

}  // namespace

std::string RequireUndo(const Group& group) {
  const LastRestore& last = group.last_restore;
  const std::string nothing = "group " + Quote(group.id) + ": there is nothing to undo: ";
  if (last.IsNone()) throw Failure(ExitCode::kRefused, nothing + "none of it was restored");
  const std::string& undo = last.is_unfinished && last.is_undo ? last.gsnap_id : last.before_id;
  if (undo.empty()) {
    throw Failure(ExitCode::kRefused, nothing + "what it held before the restore of " +
                                          Quote(last.gsnap_id) +
                                          " was not kept, as --no-undo said");
  }
  try {
    return RequireGsnap(undo).gsnap_id;
  } catch (Failure& failure) {
    if (failure.code == ExitCode::kNotFound) {
      failure.message =
          nothing + "group snapshot " + Quote(undo) + ", of what it held before, is gone";
    }
    throw;
  }
}

std::string TakeBefore(const Group& group, const VrelDRGroup::GsnapshotInfo& info, bool isInUse,
                       Warnings& warnings) {
  Group replaced = group;
  replaced.targets.clear();
  for (const auto& each : info.target_snapshots) replaced.targets.push_back(each.target);
  try {
    return MakeBefore(replaced, info.gsnap_id, isInUse, warnings).gsnap_id;
  } catch (Failure& failure) {
    failure.message += "; so nothing was restored: mend that, or go without an undo by --no-undo";
    throw;
  }
}

}  // namespace drgroupctl
