#pragma once

#include <vreldr/target.h>

#include <vector>

namespace drgroupctl {

class Warnings;

// Warns, once, of those targets whose snapshots are copies, which are made while somebody may
// write.
void WarnOfCopies(Warnings& warnings, const std::vector<VrelDR::Target>& asked);

// Warns when something is mounted inside targets that snapshots are taken of: that is in none.
void WarnOfMounts(Warnings& warnings, const std::vector<VrelDR::Target>& asked);

}  // namespace drgroupctl
