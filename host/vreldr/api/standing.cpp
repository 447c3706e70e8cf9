#include "vreldr/standing.h"

#include "base/boundary.h"
#include "plan/standing.h"

namespace VrelDR {

bool StandingReader::Read(const std::set<std::string>& targetIds,
                          std::vector<PlanStanding>& standings) const {
  return RunAndRecord(*this, [&] { return ReadStandings(*TheHost(), targetIds, standings); });
}

}  // namespace VrelDR
