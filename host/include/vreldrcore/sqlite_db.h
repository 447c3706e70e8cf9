#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldrcore/err_recorder.h"
#include "vreldrcore/sqlite_command.h"
#include "vreldrcore/sqlite_value.h"

namespace VrelDRCore {

// One connection to an SQLite file.
//
// Nothing is opened before the first command, which opens the file read-write and never creates it:
// a command on a missing file fails and leaves no file behind. The connection closes with the
// object; a transaction still open is then rolled back. Every command that fails records SQLite's
// code and message; every command that succeeds records 0. Commits are durable when a command
// returns. Objects move and do not copy; one object belongs to one thread.
class VREL_API SqliteDB : public ErrRecorder {
 public:
  // Binds the object to the file at `path`, which need not exist. A command waits up to
  // `busySeconds` for another connection's lock. `infoTable` is the table that keeps the schema
  // version.
  SqliteDB(const std::string& path, unsigned int busySeconds, const std::string& infoTable);
  SqliteDB(SqliteDB&&) noexcept;
  SqliteDB& operator=(SqliteDB&&) noexcept;
  ~SqliteDB() override;

  const std::string& GetPath() const { return path_; }

  // Whether there is a file at the path, links followed.
  bool IsExisted() const;

  // The schema version that the info table tells; 0 when it tells none. False on a failure.
  bool GetSchemaVersion(int& version) const;

  // Runs one or more statements, up to the first that fails.
  bool Exec(const std::string& sql) const;

  bool InsertRecord(const InsertCommand& command) const;
  // An update or a delete that finds no row is no failure.
  bool UpdateRecord(const UpdateCommand& command) const;
  bool DeleteRecord(const DeleteCommand& command) const;
  bool DeleteRecord(const SqliteTableHandler& table, const SqliteCondition& condition) const;

  // Appends every selected row to `rows`. On a failure `rows` keeps those read before it.
  bool SelectRecords(const SelectCommand& command, std::vector<SqliteValueList>& rows) const;

  // The first selected row; false when there is none (recorded as 0) or on a failure.
  bool SelectRecord(const SelectCommand& command, SqliteValueList& row) const;

  // Hands every selected row to `visit`, in order, until it returns false. The row is one object
  // used again for every step: copy what is to be kept. True when the rows ended or `visit` did.
  bool SelectEach(const SelectCommand& command,
                  const std::function<bool(const SqliteValueList&)>& visit) const;

 private:
  struct Connection;

  // Opens the file unless that is done, for a command that reads or for one that writes. False,
  // with the error recorded, when it cannot be opened.
  bool OpenToRead() const;
  bool OpenToWrite() const;
  // Records what the connection says of its last call; true when that is success.
  bool Record() const;
  // Runs a statement that yields no rows, with `values` and then the conditions' values bound.
  bool Execute(const std::string& sql, const SqliteValueList& values,
               const std::vector<SqliteCondition>& conditions) const;

  std::string path_;
  unsigned int busySeconds_;
  std::string infoTable_;
  mutable std::unique_ptr<Connection> connection_;
};

}  // namespace VrelDRCore
