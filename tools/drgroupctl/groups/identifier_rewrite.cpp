#include "groups/identifier_rewrite.h"

#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <algorithm>

#include "groups/catalogue.h"
#include "groups/group_store.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr char kSeparator[] = "-gsnap-";

// The tables with the column "gsnap_id".
constexpr const char* kTables[] = {"gsnap_meta", "target_snap_list", "target_replica_list"};

// As SQLite's replace() does it.
std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// The time of a group snapshot of the group, with the separator before it; empty when it is none.
std::string TimeOf(const std::string& groupId, const std::string& gsnapId) {
  const std::string prefix = groupId + kSeparator;
  if (!gsnapId.starts_with(prefix) || gsnapId.size() == prefix.size()) return {};
  const bool isTime = std::all_of(gsnapId.begin() + static_cast<std::ptrdiff_t>(prefix.size()),
                                  gsnapId.end(), [](char c) { return c >= '0' && c <= '9'; });
  return isTime ? gsnapId.substr(groupId.size()) : std::string();
}

std::string Literal(const std::string& text) {
  return "'" + ReplaceAll(text, "'", "''") + "'";
}

// Shows every value of a column to `see`. False when they cannot be read.
template <class See>
bool ReadColumn(const VrelDRGroup::DRGroupDB& db, const char* table, const char* column, See see) {
  VrelDRCore::SelectCommand command;
  command.SetTable(VrelDRCore::SqliteTableHandler(table));
  command.AddField(column);
  return db.SelectEach(command, [&](const VrelDRCore::SqliteValueList& row) {
    std::string value;
    if (row.GetValue(column, value)) see(value);
    return true;
  });
}

}  // namespace

void IdentifierRewrite::See(const std::string& value, const std::string& wanted) {
  if (value != wanted) needed_ = true;
  if (ReplaceAll(value, old_, new_) != wanted) textual_ = false;
}

void IdentifierRewrite::SeeTag(const std::string& tag) {
  if (tag != old_ && tag != new_) {
    foreign_ = tag;
  } else {
    See(tag, new_);
  }
}

void IdentifierRewrite::SeeGsnapId(const std::string& gsnapId) {
  const std::string time = TimeOf(old_, gsnapId);
  if (!time.empty()) {
    See(gsnapId, new_ + time);
  } else if (!TimeOf(new_, gsnapId).empty()) {
    See(gsnapId, gsnapId);
  } else {
    foreign_ = gsnapId;
  }
}

std::string IdentifierRewrite::Sql() const {
  const std::string prefix = Literal(old_ + kSeparator);
  const std::string time = "substr(gsnap_id, length(" + prefix + ") + 1)";
  const std::string replacement = " SET gsnap_id = " + Literal(new_ + kSeparator) + " || " + time +
                                  " WHERE substr(gsnap_id, 1, length(" + prefix + ")) = " + prefix +
                                  " AND " + time + " NOT GLOB '*[^0-9]*';";
  std::string sql;
  for (const char* table : kTables) {
    sql += "UPDATE ";
    sql += table;
    sql += replacement;
  }
  return sql + "UPDATE gsnap_meta SET tag = " + Literal(new_) + " WHERE tag = " + Literal(old_) +
         ";";
}

bool ReadIdentifiers(const std::string& dir, IdentifierRewrite& rewrite) {
  const VrelDRGroup::DRGroupDB db = VrelDRGroup::DRGroupDB::Get(dir);
  bool read = ReadColumn(db, "gsnap_meta", "tag", [&](const auto& tag) { rewrite.SeeTag(tag); });
  for (const char* table : kTables) {
    read =
        read && ReadColumn(db, table, "gsnap_id", [&](const auto& id) { rewrite.SeeGsnapId(id); });
  }
  return read;
}

void RewriteCatalogue(const std::string& dir, const std::string& oldId, const std::string& newId) {
  IdentifierRewrite rewrite(oldId, newId);
  if (!ReadIdentifiers(dir, rewrite)) throw CatalogueFailure(oldId, "cannot read its records");
  if (!rewrite.Foreign().empty()) {
    throw Failure(ExitCode::kCatalogue,
                  "group " + Quote(oldId) + ": its catalogue has records of " +
                      Quote(rewrite.Foreign()) +
                      ", which is neither its name nor a group snapshot of it, so it was not "
                      "renamed: restore the catalogue from a backup");
  }
  if (!rewrite.IsNeeded()) return;
  const bool done = rewrite.IsTextual()
                        ? VrelDRGroup::Operation::GsnapUpdateDRGroupGsnapId(oldId, newId, dir)
                        : VrelDRGroup::DRTransactDB(DatabasePath(dir)).TransactExec(rewrite.Sql());
  if (!done) throw CatalogueFailure(oldId, "its records were not renamed");
}

}  // namespace drgroupctl
