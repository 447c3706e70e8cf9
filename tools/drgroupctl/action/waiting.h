#pragma once

#include <map>
#include <string>
#include <vector>

#include "action/driver.h"
#include "command/verb.h"
#include "groups/group_store.h"

namespace drgroupctl {

// What became of what an interrupted sync of a group had left to be sent.
struct Finished {
  bool is_any = false;               // something was in hand of a plan, and has arrived now
  std::string cut_id;                // of the cut that it was of; empty when it was not of one
  std::vector<std::string> lacking;  // the replicas that have no snapshot of that cut all the same
  // What the plans have told of it, by target, such as that a snapshot was given up.
  std::map<std::string, std::string> notes;
};

// Sends what the plans of the group have in hand, and the pending snapshots, and takes none:
// afterwards the replicas have all of the last cut, before there is another one. Throws as a sync
// does that fails.
Finished FinishWaiting(const Group& group, const Arguments& args, const Abreast& abreast);

}  // namespace drgroupctl
