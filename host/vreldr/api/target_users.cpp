#include "vreldr/target_users.h"

#include "base/boundary.h"
#include "target/target_users.h"

namespace VrelDR {

bool TargetUsersFinder::Find(const std::vector<std::string>& targetIds,
                             std::vector<TargetUsers>& answers,
                             std::vector<std::string>& unseen) const {
  return RunAndRecord(*this, [&] {
    const std::shared_ptr<Host> host = TheHost();
    Status status = host->Open();
    std::set<std::string> hidden;
    if (status.IsOk()) FindUsersOf(*host, targetIds, answers, hidden);
    unseen.insert(unseen.end(), hidden.begin(), hidden.end());
    return status;
  });
}

}  // namespace VrelDR
