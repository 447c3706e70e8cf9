#include "vreldr/target_users.h"

#include <algorithm>

#include "base/status.h"

namespace VrelDR {

namespace {

std::string Process(const TargetUser& user) {
  return user.program + " (pid " + std::to_string(user.pid) + ")";
}

}  // namespace

std::string TargetUser::Text() const {
  const std::string file = "file " + Quoted(path);
  switch (kind) {
    case Kind::kOpenFile:
      return file + " is open for " + (is_writer ? "writing" : "reading") + " by " + Process(*this);
    case Kind::kMappedFile:
      return file + " is mapped for " + (is_writer ? "writing" : "reading") + " by " +
             Process(*this);
    case Kind::kLoopDevice:
      return "loop device " + Quoted(through) + " is attached to " + Quoted(path) +
             (is_writer ? "" : " for reading") +
             (mounted_on.empty() ? "" : " and mounted on " + Quoted(mounted_on));
    case Kind::kSwapFile:
      return file + " is used for swapping";
    case Kind::kMount:
      break;
  }
  return Quoted(path) + " is mounted on " + Quoted(through) + (is_writer ? "" : " for reading") +
         (pid == 0 ? "" : " in the mount namespace of " + Process(*this));
}

bool IsInTheWay(const TargetUser& user, PlaceUse use) {
  return use == PlaceUse::kDemotion ? user.is_writer : use != PlaceUse::kSnapshot;
}

std::string TextOf(const std::vector<TargetUser>& users) {
  constexpr std::size_t kShown = 3;
  std::string text;
  for (std::size_t i = 0; i < std::min(users.size(), kShown); ++i) {
    text += (i == 0 ? "" : ", ") + users[i].Text();
  }
  if (users.size() > kShown) text += " and " + std::to_string(users.size() - kShown) + " more";
  return text;
}

}  // namespace VrelDR
