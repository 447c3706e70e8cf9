#pragma once

#include <vreldr/quiesce.h>

#include <string>

#include "output/report.h"

// Who writes the targets of a group, and how they are held.
namespace drgroupctl {

// Adds the table "writers": one row for each of the means.
void AddWriters(Report& report, const VrelDR::QuiesceMeans& means);

// Throws, with all that is wrong, unless the writers could be held.
void CheckWriters(const std::string& groupId, const VrelDR::QuiesceMeans& means);

// Holds the writers and lets them go on at once. Throws when they cannot be held.
VrelDR::QuiesceTrial TryWriters(const std::string& groupId, const VrelDR::QuiesceMeans& means);

}  // namespace drgroupctl
