#pragma once

#include <utility>

#include "base/status.h"
#include "vreldrcore/sqlite_db.h"

namespace VrelDR {

// The file of the host's records, shared by the tables' classes. Every failure is kErrStore,
// or kErrBusy when another process has held it for too long.
class Database {
 public:
  explicit Database(VrelDRCore::SqliteDB&& db) : db_(std::move(db)) {}

  const VrelDRCore::SqliteDB& Get() const { return db_; }
  // Good, or what the database recorded last.
  Status Result(bool good) const;
  // Runs `steps`, which return whether to go on, as one transaction: all of them or none.
  template <class Steps>
  Status Transact(Steps&& steps) const {
    if (!db_.Exec("BEGIN IMMEDIATE")) return Result(false);
    if (std::forward<Steps>(steps)() && db_.Exec("COMMIT")) return {};
    Status failure = Result(false);
    db_.Exec("ROLLBACK");  // without it the next transaction could not begin
    return failure;
  }

 private:
  VrelDRCore::SqliteDB db_;
};

}  // namespace VrelDR
