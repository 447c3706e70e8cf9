#pragma once

#include <set>
#include <string>
#include <vector>

#include "target/host.h"
#include "vreldr/standing.h"

namespace VrelDR {

// How the plans stand that have one of the targets on one of their sides, oldest first.
Status ReadStandings(Host& host, const std::set<std::string>& targetIds,
                     std::vector<PlanStanding>& standings);

// The status of a plan's site whose operation runs, by its journal, that was read before: whether
// somebody is at it. One that has ended meanwhile does not run in `journal` afterwards.
Status LookWhoRuns(const Host& host, const std::string& planId, JournalRow& journal,
                   DRSiteStatus& site);

}  // namespace VrelDR
