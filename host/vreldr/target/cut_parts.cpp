#include "target/cut_parts.h"

#include <unistd.h>

#include <map>
#include <mutex>
#include <set>

namespace VrelDR {

namespace {

// Empty as long as there is no cut.
struct Registry {
  std::mutex mutex;
  pid_t pid = 0;
  std::set<std::string> cuts;
  std::map<std::string, CutPart> parts;  // by target
  struct Hand {
    std::string cut_id, snap_id;
  };
  std::map<std::string, Hand> hands;  // by plan
};

// What a parent process had is not this one's: it drops its descriptors of it alone.
Registry& TheRegistry(std::unique_lock<std::mutex>& lock) {
  static Registry registry;
  lock = std::unique_lock(registry.mutex);
  if (registry.pid != getpid()) {
    registry.pid = getpid();
    registry.cuts.clear();
    registry.parts.clear();
    registry.hands.clear();
  }
  return registry;
}

std::optional<CutPart> Extract(const std::string& targetId) {
  std::unique_lock<std::mutex> lock;
  auto found = TheRegistry(lock).parts.extract(targetId);
  return found ? std::optional(std::move(found.mapped())) : std::nullopt;
}

}  // namespace

void CutParts::Offer(const std::string& cutId, std::vector<Part> parts) {
  std::unique_lock<std::mutex> lock;
  Registry& registry = TheRegistry(lock);
  registry.cuts.insert(cutId);
  for (Part& each : parts) registry.parts.insert_or_assign(each.first, std::move(each.second));
}

std::vector<CutParts::Part> CutParts::Withdraw(const std::string& cutId) {
  std::unique_lock<std::mutex> lock;
  Registry& registry = TheRegistry(lock);
  registry.cuts.erase(cutId);
  std::erase_if(registry.hands, [&](const auto& each) { return each.second.cut_id == cutId; });
  std::vector<Part> withdrawn;
  for (auto each = registry.parts.begin(); each != registry.parts.end();) {
    if (each->second.snapshot.cut_id == cutId) {
      withdrawn.emplace_back(each->first, std::move(each->second));
      each = registry.parts.erase(each);
    } else {
      ++each;
    }
  }
  return withdrawn;
}

bool CutParts::Has(const std::string& targetId) {
  std::unique_lock<std::mutex> lock;
  return TheRegistry(lock).parts.contains(targetId);
}

void CutParts::NoteInHand(const std::string& cutId, const std::string& planId,
                          const std::string& snapId) {
  std::unique_lock<std::mutex> lock;
  TheRegistry(lock).hands.insert_or_assign(planId, Registry::Hand{cutId, snapId});
}

bool CutParts::IsInHand(const std::string& planId, const std::string& snapId) {
  std::unique_lock<std::mutex> lock;
  const auto& hands = TheRegistry(lock).hands;
  const auto found = hands.find(planId);
  return found != hands.end() && found->second.snap_id == snapId;
}

std::unique_ptr<BorrowedPart> BorrowedPart::Of(const std::string& targetId) {
  std::optional<CutPart> part = Extract(targetId);
  if (!part) return nullptr;
  return std::unique_ptr<BorrowedPart>(new BorrowedPart(targetId, std::move(*part)));
}

BorrowedPart::~BorrowedPart() {
  if (is_spent_) return;
  std::unique_lock<std::mutex> lock;
  Registry& registry = TheRegistry(lock);
  // What a cut that has gone left here goes with the next change of the target.
  if (registry.cuts.contains(part_.snapshot.cut_id)) {
    registry.parts.insert_or_assign(target_id_, std::move(part_));
  }
}

}  // namespace VrelDR
