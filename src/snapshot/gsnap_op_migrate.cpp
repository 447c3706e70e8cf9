// The catalogue functions that rewrite whole catalogues: see gsnap_op.cpp for those that read.
#include <vrelcore/vlibc.h>
#include <vreldrcore/json.h>

#include <cstdio>

#include "db_paths.h"
#include "log.h"
#include "vreldrgroup/db.h"
#include "vreldrgroup/snapshot/gsnap_op.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_op.cpp";

// The statement that replaces a text in one column. The names and texts are put in as they are.
std::string ReplaceStatement(const std::string& table, const std::string& field,
                             const std::string& oldStr, const std::string& newStr) {
  const auto print = [&](char* buffer, std::size_t size) {
    return std::snprintf(buffer, size, "update '%s' set %s = replace(%s, '%s', '%s');",
                         table.c_str(), field.c_str(), field.c_str(), oldStr.c_str(),
                         newStr.c_str());
  };
  const int length = print(nullptr, 0);
  if (length < 0) return {};
  std::string sql(static_cast<std::size_t>(length), '\0');
  print(sql.data(), sql.size() + 1);
  return sql;
}

// Brings a guest's catalogue to the current schema.
bool UpgradeSchema(const DRGroupDB& db, const std::string& guestId) {
  const std::string linkDir = GetDBDirByGroupId(guestId);
  if (VLIBCFileExist(kDbScript) == 0) {
    LOG_SHORT_ERR("[%s] is not existed to update db [%s]", kDbScript, db.GetPath().c_str());
    return false;
  }
  if (VLIBCExec(kDbScript, kRepairAction, linkDir.c_str(), NULL, NULL) != 0) {
    LOG_SHORT_ERR("Failed to exec [%s %s %s]", kDbScript, kRepairAction, linkDir.c_str());
    return false;
  }
  return true;
}

}  // namespace

bool GsnapUpdateDBField(const std::string& dbPath, const Json::Value& tableFields,
                        const std::string& oldStr, const std::string& newStr) {
  DRTransactDB db(dbPath);
  std::string sql;
  const bool isDescription = tableFields.isNull() || tableFields.isObject();
  for (const std::string& table :
       isDescription ? tableFields.getMemberNames() : Json::Value::Members{""}) {
    const Json::Value fields = VrelDRCore::JsonUtil::Member(tableFields, table);
    if (!fields.isArray()) {
      LOG_SHORT_ERR("Invalid table field info: [%s]",
                    VrelDRCore::JsonUtil::ToString(tableFields).c_str());
      return false;
    }
    for (const Json::Value& field : fields) {
      sql += ReplaceStatement(table, VrelDRCore::JsonUtil::AsText(field), oldStr, newStr);
    }
  }
  if (!db.TransactExec(sql)) {
    LOG_SHORT_ERR("Sqlite query transact exec failed: [%s]", sql.c_str());
    return false;
  }
  return true;
}

bool GsnapUpdateDRGroupGsnapId(const std::string& oldStr, const std::string& newStr,
                               const std::string& dbDir) {
  Json::Value tableFields(Json::objectValue);
  tableFields["gsnap_meta"].append("gsnap_id");
  tableFields["gsnap_meta"].append("tag");
  tableFields["target_snap_list"].append("gsnap_id");
  tableFields["target_replica_list"].append("gsnap_id");
  // Not GetDBPathByDir: an empty directory names the file system's root here.
  if (!GsnapUpdateDBField(dbDir + "/" + kDbName, tableFields, oldStr, newStr)) {
    LOG_SHORT_ERR("Failed to updata gsnapid in drgroup db fields, tablefeilds info: [%s]",
                  VrelDRCore::JsonUtil::ToString(tableFields).c_str());
    return false;
  }
  return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers are built for a copy
int GroupSnapMetaUpdater(const std::string& column, std::vector<std::string> guestIds) {
  const auto fillColumn = [&column](const std::string& guestId) {
    VrelDRCore::UpdateCommand command;
    command.SetTable(GsnapMetadataSqliteTable());
    command.AddFieldValue<int>(column, 1);
    command.SetCondition(VrelDRCore::SqliteIsNull(column));
    if (!DRGroupDB::GetRef(guestId).UpdateRecord(command)) {
      LOG_SHORT_ERR("Failed to update record to gsnap_meta table for guest [%s]", guestId.c_str());
      return -1;
    }
    return 0;
  };

  int result = 0;
  for (const std::string& guestId : guestIds) {
    bool upgraded = false;
    if (guestId.empty()) {
      LOG_SHORT_ERR("Guest ID is empty");
    } else {
      const DRGroupDB db = DRGroupDB::GetRef(guestId);
      // A guest without group snapshots has nothing to upgrade.
      if (!db.IsExisted()) continue;
      upgraded = UpgradeSchema(db, guestId);
    }
    if (!upgraded) {
      LOG_SHORT_ERR("Failed to upgrade drgroup.db's schema for guest [%s]", guestId.c_str());
      result = -1;
    } else if (fillColumn(guestId) != 0) {
      LOG_SHORT_ERR("Failed to update minor id for guest [%s]", guestId.c_str());
      result = -1;
    }
  }
  return result;
}

}  // namespace VrelDRGroup::Operation
