#pragma once

#include <vreldr/target.h>

#include <vector>

namespace drgroupctl {

// Warns, once, of those targets whose snapshots are copies, which are made while somebody may
// write.
void WarnOfCopies(const std::vector<VrelDR::Target>& asked);

// Warns when something is mounted inside targets that snapshots are taken of: that is in none.
void WarnOfMounts(const std::vector<VrelDR::Target>& asked);

}  // namespace drgroupctl
