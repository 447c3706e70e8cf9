#include "real_creation.h"

#include <private_namespace.h>
#include <vrelcore/vlibc.h>
#include <vreldr/target_operation.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/record/target_group.h>
#include <vreldrgroup/snapshot/gsnap_create.h>
#include <vreldrgroup/snapshot/gsnap_delete.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <filesystem>
#include <utility>

#include "raw.h"

namespace bench {

RealCreation::RealCreation(std::string groupId, std::string dbDir,
                           std::vector<VrelDR::Target> targets)
    : group_id_(std::move(groupId)), db_dir_(std::move(dbDir)), targets_(std::move(targets)) {}

bool RealCreation::Ours() {
  const VrelDRGroup::TargetList group(targets_, group_id_);
  VrelDRGroup::Operation::GsnapshotCreate operation(group, meta_, db_dir_, no_replicas_);
  const bool isMade = operation.Run();
  gsnap_id_ = operation.GetGsnapshot().gsnap_id;
  return isMade;
}

bool RealCreation::Raw() {
  const std::string link = VrelDRGroup::DRGroupDB::GetRef(group_id_).GetPath();
  const std::string path = db_dir_ + "/drgroup.db";
  if (VLIBCExec(test_support::kDbScript, "repair_db",
                std::filesystem::path(link).parent_path().c_str(), nullptr, nullptr) != 0) {
    return false;
  }
  VrelDRGroup::Gsnapshot gsnap("");
  VrelDRGroup::Utils::InitGroupSnapshot(gsnap, group_id_, meta_);
  gsnap.gsnap_time = ++time_;
  gsnap.gsnap_id = VrelDRGroup::Utils::ToGsnapId(group_id_, gsnap.gsnap_time);
  gsnap_id_ = gsnap.gsnap_id;
  for (const VrelDR::Target& target : targets_) {
    VrelDRGroup::TargetSnapshot tsnap(target, "");
    if (!VrelDR::TargetOperation(target).TakeSnapshot({}, tsnap.tsnap_id) ||
        !raw::InsertTargetSnapshot(path, tsnap, gsnap.gsnap_id)) {
      return false;
    }
  }
  return raw::InsertGsnapshot(path, gsnap);
}

void RealCreation::CleanUp() const {
  VrelDRGroup::Operation::GsnapshotDelete(gsnap_id_).Run();
}

}  // namespace bench
