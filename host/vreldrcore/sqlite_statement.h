#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

#include "vreldrcore/sqlite_command.h"

namespace VrelDRCore {

// The SQL text of a command, with a placeholder for every value: the fields' values first, then the
// conditions' but for those that ask for NULL.
std::string ToSql(const SelectCommand& command);
std::string ToSql(const InsertCommand& command);
std::string ToSql(const UpdateCommand& command);
std::string ToSql(const DeleteCommand& command);

// `name` as an SQL identifier: in double quotes, its own doubled.
std::string QuoteName(const std::string& name);

// A prepared statement; finalised with the object.
class Statement {
 public:
  // Prepare may fail: the object is then false and the connection holds the error.
  Statement(sqlite3* db, const std::string& sql);
  explicit operator bool() const { return stmt_ != nullptr; }

  // Bind the next placeholder. Texts are not copied: they must outlive the stepping.
  bool Bind(const SqliteValue& value);
  bool Bind(const std::vector<SqliteCondition>& conditions);

  // SQLITE_ROW, SQLITE_DONE or an error code.
  int Step() { return sqlite3_step(stmt_.get()); }

  // Ends the stepping and forgets what was bound, so that the statement can be run again.
  void Reset();

  // A row with the column names of the statement, which stands at a row; and the current row's
  // values put into such a row.
  SqliteValueList MakeRow() const;
  void ReadRow(SqliteValueList& row) const;

 private:
  struct Finalizer {
    void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
  };
  std::unique_ptr<sqlite3_stmt, Finalizer> stmt_;
  int bound_ = 0;
};

}  // namespace VrelDRCore
