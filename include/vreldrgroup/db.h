#pragma once

#include <vreldrcore/sqlite_command.h>
#include <vreldrcore/sqlite_db.h>

#include <string>

#include "vreldrgroup/export.h"

namespace VrelDRGroup {

// The tables of a group's catalogue, for the commands of the core library.
class VRELDRGROUP_API GsnapMetadataSqliteTable : public VrelDRCore::SqliteTableHandler {
 public:
  GsnapMetadataSqliteTable();
};
class VRELDRGROUP_API TargetSnapListSqliteTable : public VrelDRCore::SqliteTableHandler {
 public:
  TargetSnapListSqliteTable();
};
class VRELDRGROUP_API TargetReplicaListSqliteTable : public VrelDRCore::SqliteTableHandler {
 public:
  TargetReplicaListSqliteTable();
};

// A group's catalogue of group snapshots: the file "drgroup.db" in a directory of the caller's
// choice, and a link to it in the group's link directory, by which a group identifier alone finds
// it. Objects are made for one operation and closed with it; making one opens nothing. One belongs
// to one thread; different ones may work on the same catalogue at once, and wait for each other.
class VRELDRGROUP_API DRGroupDB : public VrelDRCore::SqliteDB {
 public:
  // The database in `dbDir`. An empty directory gives a database without a path, on which every
  // command fails.
  explicit DRGroupDB(const std::string& dbDir);

  // The real file in `dbDir`, and the file that the group's link leads to.
  static DRGroupDB Get(const std::string& dbDir);
  static DRGroupDB GetRef(const std::string& groupId);

  // Makes the group's catalogue ready for use: creates the database in `dbDir` unless there is one,
  // links it, and brings an existing one to the current schema. With `relink` a link that leads
  // elsewhere is replaced; without it, it is trusted. A link that it makes is on disk afterwards.
  // False when an argument is empty, when the database script fails or when the link cannot be made
  // or brought to disk; a database that was created stays.
  static bool Init(const std::string& dbDir, const std::string& groupId, bool relink);

  // Removes the group's link directory and the database in `dbDir` with SQLite's files beside it;
  // an empty argument leaves that half alone. The directory `dbDir` stays.
  static void Clear(const std::string& dbDir, const std::string& groupId);
};

// A database file on which raw SQL runs as one transaction.
class VRELDRGROUP_API DRTransactDB : public VrelDRCore::SqliteDB {
 public:
  // `dbPath` is the file itself.
  explicit DRTransactDB(const std::string& dbPath);

  // Runs `sql`, which ends with its own ";", between BEGIN and COMMIT. After a failure the
  // transaction is rolled back when this object goes; nothing of it is kept.
  bool TransactExec(const std::string& sql);
};

}  // namespace VrelDRGroup
