#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "store/database.h"
#include "store/record_state.h"
#include "vreldrcore/sqlite_command.h"

// Short forms of reading and writing the rows of one table.
namespace VrelDR::Rows {

using VrelDRCore::InsertCommand;
using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteCondition;
using VrelDRCore::SqliteEqual;
using VrelDRCore::SqliteTableHandler;
using VrelDRCore::SqliteValueList;
using VrelDRCore::UpdateCommand;

inline constexpr const char* kTargets = "targets";
inline constexpr const char* kSnapshots = "snapshots";
inline constexpr const char* kPlans = "plans";
inline constexpr const char* kLocks = "retention_locks";
inline constexpr const char* kPending = "pending_snaps";
inline constexpr const char* kSyncReports = "sync_reports";
inline constexpr const char* kJournals = "journals";

inline int GetInt(const SqliteValueList& values, const char* name) {
  int number = 0;
  values.GetValue(name, number);
  return number;
}

inline std::string GetText(const SqliteValueList& values, const char* name) {
  std::string text;
  values.GetValue(name, text);
  return text;
}

inline std::uint64_t GetSize(const SqliteValueList& values, const char* name) {
  long number = 0;
  values.GetValue(name, number);
  return static_cast<std::uint64_t>(number);
}

inline RecordState GetState(const SqliteValueList& values) {
  return static_cast<RecordState>(GetInt(values, "state"));
}

inline SelectCommand Select(const char* table, const SqliteCondition& condition,
                            const char* order) {
  SelectCommand command;
  command.SetTable(SqliteTableHandler(table));
  command.SetCondition(condition);
  if (order != nullptr) command.AddOrderField(order);
  return command;
}

inline UpdateCommand Update(const char* table, const SqliteCondition& condition) {
  UpdateCommand command;
  command.SetTable(SqliteTableHandler(table));
  command.SetCondition(condition);
  return command;
}

inline UpdateCommand UpdateState(const char* table, const SqliteCondition& condition,
                                 RecordState state) {
  UpdateCommand command = Update(table, condition);
  command.AddFieldValue("state", static_cast<int>(state));
  return command;
}

inline bool Insert(const Database& db, const char* table, const SqliteValueList& values) {
  InsertCommand command;
  command.SetTable(SqliteTableHandler(table));
  command.SetFieldValues(values);
  return db.Get().InsertRecord(command);
}

inline bool Delete(const Database& db, const char* table, const SqliteCondition& condition) {
  return db.Get().DeleteRecord(SqliteTableHandler(table), condition);
}

inline long GetSeq(const SqliteValueList& values) {
  long seq = 0;
  values.GetValue("seq", seq);
  return seq;
}

inline bool DeleteAll(const Database& db, const char* table, const std::vector<long>& seqs) {
  for (const long seq : seqs) {
    if (!Delete(db, table, SqliteEqual("seq", seq))) return false;
  }
  return true;
}

// Puts a row in the place of the plan's one.
inline bool Replace(const Database& db, const char* table, const std::string& planId,
                    const SqliteValueList& values) {
  return Delete(db, table, SqliteEqual("plan_id", planId)) && Insert(db, table, values);
}

// Appends what `read` makes of every selected row.
template <class Row>
bool SelectInto(const Database& db, const SelectCommand& command,
                Row (*read)(const SqliteValueList&), std::vector<Row>& rows) {
  return db.Get().SelectEach(command, [&](const SqliteValueList& values) {
    rows.push_back(read(values));
    return true;
  });
}

// Puts what `read` makes of the first row into `row`, which is empty when there is none.
template <class Row>
bool SelectOne(const Database& db, const char* table, const SqliteCondition& condition,
               Row (*read)(const SqliteValueList&), std::optional<Row>& row) {
  row.reset();
  return db.Get().SelectEach(Select(table, condition, nullptr), [&](const SqliteValueList& values) {
    row = read(values);
    return false;
  });
}

}  // namespace VrelDR::Rows
