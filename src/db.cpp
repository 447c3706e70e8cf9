#include "vreldrgroup/db.h"

#include <sys/stat.h>
#include <unistd.h>
#include <vrelcore/vlibc.h>
#include <vreldrcore/file.h>
#include <vreldrcore/sync.h>

#include <algorithm>

#include "db_paths.h"
#include "log.h"

namespace VrelDRGroup {

namespace {

constexpr char kUnit[] = "db";
constexpr char kInfoTable[] = "vreldrcore_db_info";
constexpr unsigned int kBusySeconds = 20;
constexpr int kDirMode = 0755;
// What SQLite keeps beside a database. A journal that outlived its database would be rolled back
// into the next one of that name.
constexpr const char* kSideFiles[] = {"-journal", "-wal", "-shm"};

// Creates the database in `dir` or brings the one there to the current schema.
bool RepairDRGroupDBByDBDir(const std::string& dir) {
  if (dir.empty()) {
    LOG_LONG_ERR("empty dir to repair drgroup db");
    return false;
  }
  const std::string dbPath = GetDBPathByDir(dir);
  if (VLIBCFileExist(kDbScript) == 0) {
    LOG_LONG_ERR("[%s] is not existed to init db [%s]", kDbScript, dbPath.c_str());
    return false;
  }
  VrelDRCore::File::CreateDir(dir, kDirMode);
  if (VLIBCExec(kDbScript, kRepairAction, dir.c_str(), NULL, NULL) != 0) {
    LOG_LONG_ERR("Failed to exec [%s %s %s]", kDbScript, kRepairAction, dir.c_str());
    return false;
  }
  return true;
}

// What the link at `linkPath` leads to; empty when it is no link.
std::string GetLinkPath(const std::string& linkPath) {
  constexpr ssize_t kMaxLength = 4096;
  char buffer[kMaxLength + 1] = {};
  const ssize_t length = readlink(linkPath.c_str(), buffer, kMaxLength);
  if (length == -1) return {};
  if (length > kMaxLength) {
    LOG_LONG_ERR("readlink [%s] is too long", linkPath.c_str());
    return {};
  }
  return buffer;
}

// Turns an absolute path into that of its parent; "/" stays.
void Ascend(std::string& path) {
  path.erase(std::max<std::size_t>(path.rfind('/'), 1));
}

// Makes the link with what is missing of its directory, and brings all of it to disk. False when
// that cannot be done; what stood at `linkPath` before is still there, and nothing new.
bool MakeLink(const std::string& dbPath, const std::string& linkDir, const std::string& linkPath) {
  std::string oldest = linkDir;
  while (access(oldest.c_str(), F_OK) != 0 && oldest.size() > 1) Ascend(oldest);
  VrelDRCore::File::CreateDir(linkDir, kDirMode);
  // A dangling link that was not to be replaced makes this fail: nothing is overwritten.
  if (symlink(dbPath.c_str(), linkPath.c_str()) != 0) return false;
  for (std::string dir = linkDir; VrelDRCore::SyncDirectory(dir) == 0; Ascend(dir)) {
    if (dir.size() <= oldest.size()) return true;
  }
  unlink(linkPath.c_str());
  return false;
}

}  // namespace

std::string GetDBPathByDir(const std::string& dir) {
  return dir.empty() ? std::string() : dir + "/" + kDbName;
}

std::string GetDBDirByGroupId(const std::string& groupId) {
  return std::string(kDrGroupRoot) + "/" + groupId;
}

GsnapMetadataSqliteTable::GsnapMetadataSqliteTable() : SqliteTableHandler("gsnap_meta", "") {}
TargetSnapListSqliteTable::TargetSnapListSqliteTable()
    : SqliteTableHandler("target_snap_list", "") {}
TargetReplicaListSqliteTable::TargetReplicaListSqliteTable()
    : SqliteTableHandler("target_replica_list", "") {}

DRGroupDB::DRGroupDB(const std::string& dbDir)
    : SqliteDB(GetDBPathByDir(dbDir), kBusySeconds, kInfoTable) {}

DRGroupDB DRGroupDB::Get(const std::string& dbDir) {
  return DRGroupDB(dbDir);
}

DRGroupDB DRGroupDB::GetRef(const std::string& groupId) {
  return DRGroupDB(GetDBDirByGroupId(groupId));
}

bool DRGroupDB::Init(const std::string& dbDir, const std::string& groupId, bool relink) {
  if (dbDir.empty() || groupId.empty()) return false;

  const std::string dbPath = Get(dbDir).GetPath();
  bool created = false;
  if (VLIBCFileExist(dbPath.c_str()) == 0) {
    if (!RepairDRGroupDBByDBDir(dbDir)) return false;
    created = true;
  }

  const std::string linkDir = GetDBDirByGroupId(groupId);
  const std::string linkPath = Get(linkDir).GetPath();
  if (relink) {
    struct stat st = {};
    if (VLIBCFileLStat(linkPath.c_str(), VLIBC_STAT_ALL, &st) != 0 ||
        GetLinkPath(linkPath) != dbPath) {
      unlink(linkPath.c_str());
    }
  }
  if (VLIBCFileExist(linkPath.c_str()) == 0) {
    if (!MakeLink(dbPath, linkDir, linkPath)) {
      LOG_LONG_ERR("Failed to link [%s] to [%s]", dbPath.c_str(), linkPath.c_str());
      return false;
    }
  }

  // An existing database is upgraded through the link; a new one is current.
  return created || RepairDRGroupDBByDBDir(linkDir);
}

void DRGroupDB::Clear(const std::string& dbDir, const std::string& groupId) {
  if (!groupId.empty()) {
    VrelDRCore::File::RemoveDir(GetDBDirByGroupId(groupId));
    VrelDRCore::SyncDirectory(kDrGroupRoot);
  }
  if (dbDir.empty()) return;
  const std::string dbPath = Get(dbDir).GetPath();
  if (VLIBCFileExist(dbPath.c_str()) != 1) return;
  unlink(dbPath.c_str());
  for (const char* suffix : kSideFiles) unlink((dbPath + suffix).c_str());
  VrelDRCore::SyncDirectory(dbDir);
}

DRTransactDB::DRTransactDB(const std::string& dbPath)
    : SqliteDB(dbPath, kBusySeconds, kInfoTable) {}

bool DRTransactDB::TransactExec(const std::string& sql) {
  return Exec("BEGIN TRANSACTION;" + sql + "COMMIT TRANSACTION;");
}

}  // namespace VrelDRGroup
