#pragma once

#include <vreldr/target.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/record/gsnapshot.h>
#include <vreldrgroup/record/target_snapshot.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace drgroupctl {

// How many parts a group snapshot has, and of how many of some targets.
struct PartCount {
  std::uint64_t parts = 0;
  std::uint64_t targets = 0;
};

// Identifiers that somebody else keeps: there may be hundreds of thousands.
using Identifiers = std::unordered_set<std::string_view>;

// What a group's catalogue says about something, read without the rest of it: by its indexes, and
// with nothing kept but the answer. In a catalogue of an earlier schema, which lacks some of them,
// the same is found by reading all rows once. All of it is one connection, made with the first
// question. Everything here throws what makes the catalogue unusable.
class CatalogueRows {
 public:
  using Part = VrelDRGroup::TargetSnapshotRelationship;

  explicit CatalogueRows(const std::string& groupId);

  // How many group snapshots it lists.
  std::uint64_t CountGsnaps() const;

  // Whether it lists the group snapshot, and whether it has a part of it, listed or not.
  bool IsListed(const std::string& gsnapId) const;
  bool HasParts(const std::string& gsnapId) const;

  // The group's snapshot of this name, without parts, and the first one that is of this time.
  std::optional<VrelDRGroup::Gsnapshot> FindGsnap(const std::string& gsnapId) const;
  std::optional<VrelDRGroup::Gsnapshot> FindGsnapOfTime(long time) const;

  // The parts of the group snapshot, listed or not.
  std::vector<Part> PartsOf(const std::string& gsnapId) const;

  // By group snapshot, of those that have any parts; and of one of them. The first reads all rows.
  std::map<std::string, PartCount> CountParts(const std::vector<VrelDR::Target>& targets) const;
  PartCount CountPartsOf(const std::string& gsnapId,
                         const std::vector<VrelDR::Target>& targets) const;

  // Hands those parts to `visit` that are one of these target snapshots, in no order.
  void VisitPartsAmong(const Identifiers& snapIds,
                       const std::function<void(const Part&)>& visit) const;

 private:
  using Visit = std::function<bool(const VrelDRCore::SqliteValueList&)>;

  bool Put(const Identifiers& texts) const;
  bool Ask(const std::string& select, const Visit& visit) const;
  bool HasRow(const VrelDRCore::SqliteTableHandler& table, const std::string& gsnapId) const;
  bool HasLostRow() const;
  bool IsFew(std::size_t count) const;
  std::optional<VrelDRGroup::Gsnapshot> FirstGsnap(
      const VrelDRCore::SqliteCondition& condition) const;

  std::string group_id_;
  VrelDRGroup::DRGroupDB db_;
};

}  // namespace drgroupctl
