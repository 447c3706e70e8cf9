#pragma once

#include <vreldr/target.h>

#include <vector>

namespace drgroupctl {

// Warns, once, of those targets whose snapshots are copies, which are made while somebody may
// write.
void WarnOfCopies(const std::vector<VrelDR::Target>& asked);

}  // namespace drgroupctl
