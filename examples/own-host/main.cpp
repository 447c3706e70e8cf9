// A service in small: own-host DIRECTORY. Takes a group snapshot of two targets in memory, with the
// catalogue in the directory, and does with it what there is to do. Ends with 0 when all of it went
// as it should.
#include <vreldrgroup/vreldrgroup.h>
#include <vreldrnode/dr_node.h>

#include <iostream>
#include <string>
#include <vector>

#include "own_host.h"

namespace {

using namespace VrelDRGroup;

// Ends the program's work when something did not go as it should.
bool Expect(bool good, const std::string& what, const VrelDRCore::ErrRecorder& recorder) {
  std::cout << what << ": " << (good ? "done" : recorder.GetErr().toStyledString()) << "\n";
  return good;
}

std::string BytesOf(const std::string& targetId) {
  std::string bytes;
  return OwnHost::Read(targetId, bytes) ? bytes : "no such target";
}

void PrintCatalogue(const std::string& groupId) {
  std::vector<GsnapshotInfo> catalogue;
  Operation::GsnapshotInfoList(groupId, catalogue);
  std::cout << catalogue.size() << " group snapshot(s)\n";
  for (const GsnapshotInfo& gsnap : catalogue) {
    std::cout << "  " << gsnap.gsnap_id << " \"" << gsnap.desc << "\" " << ToString(gsnap.status)
              << "\n";
    for (const TargetSnapshot& part : gsnap.target_snapshots) {
      std::cout << "    " << part.target.GetId() << " " << part.tsnap_id << "\n";
    }
  }
}

// Protecting the group, which this host refuses. True when it did, and said why.
bool IsReplicationRefused(const std::string& targetId) {
  ActionPolicy::ActionImpl<ActionPolicy::Create> action;
  Json::Value params(Json::objectValue);
  params[ActionPolicy::Param::kVolume] = "elsewhere";
  params[ActionPolicy::Param::kNode] = VrelDRNode::DRNode::getLocalNodeId();
  if (action.PreAct({targetId}, params) != 0) return false;
  int err = 0;
  const auto operation = action.GenOperation(targetId, err);
  if (!operation || operation->Run(false)) return false;
  std::cout << "protecting " << targetId << " is refused: " << operation->GetErrCode() << " "
            << operation->GetErrMsg().asString() << "\n";
  return operation->GetErrCode() == VrelDR::kErrUnsupported;
}

bool Work(const std::string& directory) {
  const std::string disk = "db-disk";
  const std::string share = "db-share";
  OwnHost::MakeTarget({disk, VrelDR::kTargetLun}, "tables 1");
  OwnHost::MakeTarget({share, VrelDR::kTargetShare}, "files 1");
  const TargetList shop({{disk, VrelDR::kTargetLun}, {share, VrelDR::kTargetShare}}, "shop");

  const GsnapMeta meta("before the upgrade", false, kCwCrashConsistent);
  const Json::Value noReplicas(Json::objectValue);
  Operation::GsnapshotCreate create(shop, meta, directory, noReplicas);
  if (!Expect(create.Run(), "taking", create)) return false;
  const std::string gsnapId = create.GetGsnapshot().gsnap_id;
  PrintCatalogue("shop");

  OwnHost::Write(disk, "tables 2");
  OwnHost::Write(share, "files 2");
  Operation::GsnapshotRestore restore(gsnapId);
  if (!Expect(restore.Run(), "restoring", restore)) return false;
  std::cout << "  " << BytesOf(disk) << ", " << BytesOf(share) << "\n";
  if (BytesOf(disk) != "tables 1" || BytesOf(share) != "files 1") return false;

  OwnHost::Write(disk, "tables 3");
  Operation::GsnapshotClone clone(gsnapId);
  if (!Expect(clone.Run(), "cloning", clone)) return false;
  for (const auto& [target, cloneId] : clone.GetClones()) {
    std::cout << "  " << target.GetId() << " as " << cloneId << ": " << BytesOf(cloneId) << "\n";
    const std::string wanted = target.GetId() == disk ? "tables 1" : "files 1";
    if (BytesOf(cloneId) != wanted) return false;
  }

  // One that stays, and one that goes.
  Operation::GsnapshotCreate second(shop, meta, directory, noReplicas);
  if (!Expect(second.Run(), "taking", second)) return false;
  Operation::GsnapshotDelete remove(gsnapId);
  if (!Expect(remove.Run(), "deleting", remove)) return false;
  PrintCatalogue("shop");
  return IsReplicationRefused(disk);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "Usage: own-host DIRECTORY\n";
    return 2;
  }
  return Work(argv[1]) ? 0 : 1;
}
