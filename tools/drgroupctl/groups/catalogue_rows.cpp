#include "groups/catalogue_rows.h"

#include <unordered_map>

#include "groups/catalogue.h"

namespace drgroupctl {

namespace {

using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteEqual;
using VrelDRCore::SqliteTableHandler;
using VrelDRCore::SqliteValueList;
using VrelDRGroup::Gsnapshot;

constexpr char kNoGsnaps[] = "cannot list its snapshots";
constexpr char kNoParts[] = "cannot list its target snapshots";

std::set<std::string> IdsOf(const std::vector<VrelDR::Target>& targets) {
  std::set<std::string> ids;
  for (const VrelDR::Target& each : targets) ids.insert(each.GetId());
  return ids;
}

}  // namespace

CatalogueRows::CatalogueRows(const std::string& groupId)
    : group_id_(groupId), db_(VrelDRGroup::DRGroupDB::GetRef(groupId)) {}

// Puts the texts into the connection's own table "asked", in which they are found by an index, and
// no others.
bool CatalogueRows::Put(const Identifiers& texts) const {
  const SqliteTableHandler asked("asked", "temp");
  bool isGood = db_.Exec(
      "BEGIN; CREATE TEMP TABLE IF NOT EXISTS asked (id TEXT PRIMARY KEY) WITHOUT ROWID; "
      "DELETE FROM temp.asked");
  for (const std::string_view each : texts) {
    if (!isGood) break;
    SqliteValueList row;
    row.AddValue("id", std::string(each));
    VrelDRCore::InsertCommand command;
    command.SetTable(asked);
    command.SetFieldValues(row);
    isGood = db_.InsertRecord(command);
  }
  return isGood && db_.Exec("COMMIT");
}

// Hands the rows of a SELECT to `visit`. The commands of the core library have words for tables
// alone: a view of the connection's own says the rest.
bool CatalogueRows::Ask(const std::string& select, const Visit& visit) const {
  SelectCommand command;
  command.SetTable(SqliteTableHandler("answer", "temp"));
  return db_.Exec("DROP VIEW IF EXISTS temp.answer; CREATE TEMP VIEW answer AS " + select) &&
         db_.SelectEach(command, visit);
}

// Whether the table has a row of the group snapshot; also false when that could not be found out,
// which the database has recorded.
bool CatalogueRows::HasRow(const SqliteTableHandler& table, const std::string& gsnapId) const {
  SelectCommand command;
  command.SetTable(table);
  command.AddField("gsnap_id");
  command.SetCondition(SqliteEqual("gsnap_id", gsnapId));
  command.SetLimit(1);
  SqliteValueList row;
  return db_.SelectRecord(command, row);
}

std::optional<Gsnapshot> CatalogueRows::FirstGsnap(
    const VrelDRCore::SqliteCondition& condition) const {
  SelectCommand command;
  command.SetTable(VrelDRGroup::GsnapMetadataSqliteTable());
  command.SetCondition(condition);
  command.AddCondition(SqliteEqual("tag", group_id_));
  SqliteValueList row;
  const bool isFound = db_.SelectRecord(command, row);
  if (!isFound && db_.GetErrCode() == 0) return std::nullopt;
  Gsnapshot gsnap("");
  if (!isFound || !gsnap.FromSqliteValues(row)) throw CatalogueFailure(group_id_, kNoGsnaps);
  return gsnap;
}

std::uint64_t CatalogueRows::CountGsnaps() const {
  long listed = 0;
  long named = 0;
  const bool isAnswered =
      Ask("SELECT count(*) AS listed, count(gsnap_id) AS named FROM main.gsnap_meta",
          [&](const SqliteValueList& row) {
            return row.GetValue("listed", listed) && row.GetValue("named", named);
          });
  if (!isAnswered || listed != named) throw CatalogueFailure(group_id_, kNoGsnaps);
  return static_cast<std::uint64_t>(listed);
}

bool CatalogueRows::IsListed(const std::string& gsnapId) const {
  const bool isFound = HasRow(VrelDRGroup::GsnapMetadataSqliteTable(), gsnapId);
  if (!isFound && db_.GetErrCode() != 0) throw CatalogueFailure(group_id_, kNoGsnaps);
  return isFound;
}

bool CatalogueRows::HasParts(const std::string& gsnapId) const {
  const bool isFound = HasRow(VrelDRGroup::TargetSnapListSqliteTable(), gsnapId);
  if (!isFound && db_.GetErrCode() != 0) throw CatalogueFailure(group_id_, kNoParts);
  return isFound;
}

std::optional<Gsnapshot> CatalogueRows::FindGsnap(const std::string& gsnapId) const {
  return FirstGsnap(SqliteEqual("gsnap_id", gsnapId));
}

std::optional<Gsnapshot> CatalogueRows::FindGsnapOfTime(long time) const {
  return FirstGsnap(SqliteEqual("gsnap_time", time));
}

std::vector<CatalogueRows::Part> CatalogueRows::PartsOf(const std::string& gsnapId) const {
  SelectCommand command;
  command.SetTable(VrelDRGroup::TargetSnapListSqliteTable());
  command.SetCondition(SqliteEqual("gsnap_id", gsnapId));
  std::vector<Part> parts;
  bool isReadable = true;
  const bool isAnswered = db_.SelectEach(command, [&](const SqliteValueList& row) {
    isReadable = parts.emplace_back().FromSqliteValues(row);
    return isReadable;
  });
  if (!isAnswered || !isReadable) throw CatalogueFailure(group_id_, kNoParts);
  return parts;
}

// Whether a row of the parts holds nothing at all, or that could not be found out.
bool CatalogueRows::HasLostRow() const {
  SelectCommand command;
  command.SetTable(VrelDRGroup::TargetSnapListSqliteTable());
  for (const char* column : {"gsnap_id", "target_id", "tsnap_id", "target_type"}) {
    command.AddCondition(VrelDRCore::SqliteIsNull(column));
  }
  command.SetLimit(1);
  SqliteValueList row;
  return db_.SelectRecord(command, row) || db_.GetErrCode() != 0;
}

// To group them, the database would look up every row by an index: reading the two columns in the
// order of the rows takes half as long, and what is kept is no more.
std::map<std::string, PartCount> CatalogueRows::CountParts(
    const std::vector<VrelDR::Target>& targets) const {
  std::unordered_map<std::string, std::size_t> places;
  for (const VrelDR::Target& each : targets) places.try_emplace(each.GetId(), places.size());
  std::map<std::string, PartCount> counts;
  std::map<std::string, std::vector<bool>> found;  // which of the targets, by group snapshot
  auto count = counts.end();
  std::vector<bool>* own = nullptr;
  SelectCommand command;
  command.SetTable(VrelDRGroup::TargetSnapListSqliteTable());
  command.AddField("gsnap_id");
  command.AddField("target_id");
  const bool isAnswered = db_.SelectEach(command, [&](const SqliteValueList& row) {
    const std::string& gsnapId = row.ValueAt(0).Text();
    // Rows of one group snapshot mostly follow each other.
    if (count == counts.end() || count->first != gsnapId) {
      count = counts.try_emplace(gsnapId).first;
      own = &found[gsnapId];
      own->resize(places.size());
    }
    ++count->second.parts;
    const auto place = places.find(row.ValueAt(1).Text());
    if (place != places.end() && !(*own)[place->second]) {
      (*own)[place->second] = true;
      ++count->second.targets;
    }
    return true;
  });
  if (!isAnswered || HasLostRow()) throw CatalogueFailure(group_id_, kNoParts);
  return counts;
}

PartCount CatalogueRows::CountPartsOf(const std::string& gsnapId,
                                      const std::vector<VrelDR::Target>& targets) const {
  const std::vector<Part> parts = PartsOf(gsnapId);
  const std::set<std::string> ids = IdsOf(targets);
  std::set<std::string> found;
  for (const Part& each : parts) {
    if (ids.count(each.target.GetId()) != 0) found.insert(each.target.GetId());
  }
  return {parts.size(), found.size()};
}

// Whether the catalogue may have several times as many parts as that: none has more than the number
// of its last row.
bool CatalogueRows::IsFew(std::size_t count) const {
  long last = 0;
  const bool isAnswered =
      Ask("SELECT coalesce(max(rowid), 0) AS last FROM main.target_snap_list",
          [&last](const SqliteValueList& row) { return row.GetValue("last", last); });
  return isAnswered && count < static_cast<std::size_t>(last) / 8;
}

// A few are looked up by an index. Of many, putting them in a table would take longer than reading
// all rows.
void CatalogueRows::VisitPartsAmong(const Identifiers& snapIds,
                                    const std::function<void(const Part&)>& visit) const {
  if (snapIds.empty()) return;
  const auto take = [&](const SqliteValueList& row) {
    Part part;
    part.FromSqliteValues(row);
    visit(part);
    return true;
  };
  if (IsFew(snapIds.size())) {
    if (Put(snapIds) &&
        Ask("SELECT * FROM main.target_snap_list WHERE tsnap_id IN (SELECT id FROM temp.asked)",
            take)) {
      return;
    }
    throw CatalogueFailure(group_id_, kNoParts);
  }
  std::string snapId;
  const auto takeAsked = [&](const SqliteValueList& row) {
    return !row.GetValue("tsnap_id", snapId) || snapIds.count(snapId) == 0 || take(row);
  };
  SelectCommand command;
  command.SetTable(VrelDRGroup::TargetSnapListSqliteTable());
  if (!db_.SelectEach(command, takeAsked)) throw CatalogueFailure(group_id_, kNoParts);
}

}  // namespace drgroupctl
