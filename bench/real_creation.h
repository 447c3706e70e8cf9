#pragma once

#include <vreldr/session.h>
#include <vreldr/target.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <memory>
#include <string>
#include <vector>

namespace bench {

// Group snapshots of targets of the stand-alone host.
class RealCreation {
 public:
  // `dbDir` has the group's catalogue.
  RealCreation(std::string groupId, std::string dbDir, std::vector<VrelDR::Target> targets);

  bool Ours();
  // The script once, the host's own snapshot of each target, and the rows, each durable.
  bool Raw();
  // Deletes what the last of these calls has made.
  void CleanUp() const;

 private:
  std::string group_id_;
  std::string db_dir_;
  std::vector<VrelDR::Target> targets_;
  VrelDRGroup::GsnapMeta meta_{"nightly snapshot of the group", false,
                               VrelDRGroup::kCwCrashConsistent};
  Json::Value no_replicas_{Json::objectValue};
  VrelDR::Session session_;
  long time_ = 1'000'000'000;
  std::string gsnap_id_;
};

}  // namespace bench
