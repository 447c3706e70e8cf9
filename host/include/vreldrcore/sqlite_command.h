#pragma once

#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldrcore/sqlite_value.h"

namespace VrelDRCore {

// Commands on one table, as plain data that SqliteDB turns into a statement. Names of tables and
// columns are quoted and values are bound, so any text is safe in either place.

// Names a table. The second argument is the schema the table lives in; empty is the main one.
class VREL_API SqliteTableHandler {
 public:
  explicit SqliteTableHandler(const std::string& table, const std::string& schema = std::string())
      : table_(table), schema_(schema) {}
  SqliteTableHandler(const SqliteTableHandler&) = default;
  SqliteTableHandler& operator=(const SqliteTableHandler&) = default;
  virtual ~SqliteTableHandler() = default;

  const std::string& GetTable() const { return table_; }
  const std::string& GetSchema() const { return schema_; }

 private:
  std::string table_;
  std::string schema_;
};

// A condition on one column; a default-constructed one is no condition.
class VREL_API SqliteCondition {
 public:
  SqliteCondition() = default;

  bool Empty() const { return column_.empty(); }
  const std::string& GetColumn() const { return column_; }
  // NULL asks for rows whose column is NULL, any other value for rows whose column equals it.
  const SqliteValue& GetValue() const { return value_; }

 protected:
  SqliteCondition(const std::string& column, const SqliteValue& value)
      : column_(column), value_(value) {}

 private:
  std::string column_;
  SqliteValue value_;
};

class VREL_API SqliteEqual : public SqliteCondition {
 public:
  SqliteEqual(const std::string& column, const SqliteValue& value)
      : SqliteCondition(column, value) {}
};

class VREL_API SqliteIsNull : public SqliteCondition {
 public:
  explicit SqliteIsNull(const std::string& column) : SqliteCondition(column, SqliteValue()) {}
};

class VREL_API SqliteCommand {
 public:
  void SetTable(const SqliteTableHandler& table) { table_ = table; }
  const SqliteTableHandler& GetTable() const { return table_; }

 private:
  SqliteTableHandler table_{std::string()};
};

// A command on the rows that its conditions pick, each of which has to hold.
class VREL_API SqliteConditionCommand : public SqliteCommand {
 public:
  // The one condition from now on; an empty one is none.
  void SetCondition(const SqliteCondition& condition) {
    conditions_.clear();
    AddCondition(condition);
  }
  void AddCondition(const SqliteCondition& condition) {
    if (!condition.Empty()) conditions_.push_back(condition);
  }
  const std::vector<SqliteCondition>& ListCondition() const { return conditions_; }

 private:
  std::vector<SqliteCondition> conditions_;
};

// Selects all columns unless fields are named, all rows unless a condition is set.
class VREL_API SelectCommand : public SqliteConditionCommand {
 public:
  void SelectAll() { fields_.clear(); }
  void AddField(const std::string& field) { fields_.push_back(field); }
  void AddOrderField(const std::string& field) { orderFields_.push_back(field); }
  void SetOrderByDESC() { descending_ = true; }
  void SetLimit(int limit) { limit_ = limit; }

  const std::vector<std::string>& ListField() const { return fields_; }
  const std::vector<std::string>& ListOrderField() const { return orderFields_; }
  bool IsDescending() const { return descending_; }
  // Negative when there is no limit.
  int GetLimit() const { return limit_; }

 private:
  std::vector<std::string> fields_;
  std::vector<std::string> orderFields_;
  bool descending_ = false;
  int limit_ = -1;
};

class VREL_API InsertCommand : public SqliteCommand {
 public:
  void SetFieldValues(const SqliteValueList& values) { values_ = values; }
  const SqliteValueList& GetFieldValues() const { return values_; }

 private:
  SqliteValueList values_;
};

// Refused by the database without a condition: it would overwrite every row.
class VREL_API UpdateCommand : public SqliteConditionCommand {
 public:
  void SetFieldValues(const SqliteValueList& values) { values_ = values; }
  template <class T>
  void AddFieldValue(const std::string& field, const T& value) {
    values_.AddValue(field, SqliteValue(value));
  }
  const SqliteValueList& GetFieldValues() const { return values_; }

 private:
  SqliteValueList values_;
};

// Refused by the database unless it has a condition or DeleteAll was called.
class VREL_API DeleteCommand : public SqliteConditionCommand {
 public:
  void DeleteAll() { all_ = true; }
  bool IsDeleteAll() const { return all_; }

 private:
  bool all_ = false;
};

}  // namespace VrelDRCore
