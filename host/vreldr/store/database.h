#pragma once

#include <utility>
#include <vector>

#include "base/status.h"
#include "store/record_sets.h"

namespace VrelDR {

// The file of the host's records. Every failure is kErrStore, or kErrBusy when another process has
// held it for too long.
class Database {
 public:
  explicit Database(VrelDRCore::SqliteDB&& db) : db_(std::move(db)) {}

  const VrelDRCore::SqliteDB& Get() const { return db_; }
  Records GetRecords() const { return Records(db_); }  // for single calls
  // Good, or what the database recorded last.
  Status Result(bool good) const;
  // The same of a list, in which only what is whole stays, and nothing after a failure.
  template <class Row>
  Status WholeResult(bool good, std::vector<Row>& rows) const {
    std::erase_if(rows,
                  [&](const Row& each) { return !good || each.state != RecordState::kWhole; });
    return Result(good);
  }
  // Runs `steps`, which only read, over the records as they are at one moment.
  template <class Steps>
  Status ReadAtOnce(Steps&& steps) const {
    if (!db_.Exec("BEGIN")) return Result(false);
    Status status = Result(std::forward<Steps>(steps)(GetRecords()));
    if (!db_.Exec("COMMIT")) db_.Exec("ROLLBACK");  // without either nothing more could begin
    return status;
  }
  // Runs `steps`, which are given the records and return whether to go on, as one transaction: all
  // of them or none.
  template <class Steps>
  Status Transact(Steps&& steps) const {
    if (!db_.Exec("BEGIN IMMEDIATE")) return Result(false);
    if (std::forward<Steps>(steps)(GetRecords()) && db_.Exec("COMMIT")) return {};
    Status failure = Result(false);
    db_.Exec("ROLLBACK");  // without it the next transaction could not begin
    return failure;
  }
  // The same for what a power cut may take back, as nobody rests on it before something is written
  // that is durable: it waits for no disk.
  template <class Steps>
  Status TransactLoosely(Steps&& steps) const {
    if (!db_.Exec("PRAGMA synchronous = NORMAL")) return Result(false);
    Status status = Transact(std::forward<Steps>(steps));
    return db_.Exec("PRAGMA synchronous = FULL") ? status : Result(false);
  }

 private:
  VrelDRCore::SqliteDB db_;
};

}  // namespace VrelDR
