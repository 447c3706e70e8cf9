#include "sqlite_statement.h"

#include <algorithm>
#include <string_view>

namespace VrelDRCore {

namespace {

std::string QuoteTable(const SqliteTableHandler& table) {
  const std::string name = QuoteName(table.GetTable());
  return table.GetSchema().empty() ? name : QuoteName(table.GetSchema()) + "." + name;
}

std::string Where(const std::vector<SqliteCondition>& conditions) {
  std::string sql;
  for (const SqliteCondition& each : conditions) {
    sql += (sql.empty() ? " WHERE " : " AND ") + QuoteName(each.GetColumn()) +
           (each.GetValue().IsNull() ? " IS NULL" : " = ?");
  }
  return sql;
}

std::string JoinNames(const std::vector<std::string>& names, const std::string& suffix) {
  std::string sql;
  for (const std::string& name : names) {
    if (!sql.empty()) sql += ", ";
    sql += QuoteName(name) + suffix;
  }
  return sql;
}

}  // namespace

std::string QuoteName(const std::string& name) {
  std::string quoted = "\"";
  for (const char c : name) {
    if (c == '"') quoted += c;
    quoted += c;
  }
  return quoted + "\"";
}

std::string ToSql(const SelectCommand& command) {
  std::string sql = "SELECT ";
  sql += command.ListField().empty() ? "*" : JoinNames(command.ListField(), "");
  sql += " FROM " + QuoteTable(command.GetTable()) + Where(command.ListCondition());
  if (!command.ListOrderField().empty()) {
    sql +=
        " ORDER BY " + JoinNames(command.ListOrderField(), command.IsDescending() ? " DESC" : "");
  }
  if (command.GetLimit() >= 0) sql += " LIMIT " + std::to_string(command.GetLimit());
  return sql;
}

std::string ToSql(const InsertCommand& command) {
  const SqliteValueList& values = command.GetFieldValues();
  const std::string into = "INSERT INTO " + QuoteTable(command.GetTable());
  if (values.Empty()) return into + " DEFAULT VALUES";
  std::string names;
  std::string marks;
  for (std::size_t i = 0; i < values.Size(); ++i) {
    names += (i == 0 ? "" : ", ") + QuoteName(values.NameAt(i));
    marks += i == 0 ? "?" : ", ?";
  }
  return into + " (" + names + ") VALUES (" + marks + ")";
}

std::string ToSql(const UpdateCommand& command) {
  const SqliteValueList& values = command.GetFieldValues();
  std::string assignments;
  for (std::size_t i = 0; i < values.Size(); ++i) {
    assignments += (i == 0 ? "" : ", ") + QuoteName(values.NameAt(i)) + " = ?";
  }
  return "UPDATE " + QuoteTable(command.GetTable()) + " SET " + assignments +
         Where(command.ListCondition());
}

std::string ToSql(const DeleteCommand& command) {
  return "DELETE FROM " + QuoteTable(command.GetTable()) + Where(command.ListCondition());
}

Statement::Statement(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size()), &stmt, nullptr);
  stmt_.reset(stmt);
}

bool Statement::Bind(const SqliteValue& value) {
  ++bound_;
  switch (value.GetKind()) {
    case SqliteValue::Kind::kNull:
      return sqlite3_bind_null(stmt_.get(), bound_) == SQLITE_OK;
    case SqliteValue::Kind::kInteger:
      return sqlite3_bind_int64(stmt_.get(), bound_, value.AsInteger()) == SQLITE_OK;
    case SqliteValue::Kind::kText:
      break;
  }
  return sqlite3_bind_text64(stmt_.get(), bound_, value.Text().data(), value.Text().size(),
                             SQLITE_STATIC, SQLITE_UTF8) == SQLITE_OK;
}

bool Statement::Bind(const std::vector<SqliteCondition>& conditions) {
  return std::all_of(conditions.begin(), conditions.end(), [this](const SqliteCondition& each) {
    return each.GetValue().IsNull() || Bind(each.GetValue());
  });
}

void Statement::Reset() {
  sqlite3_reset(stmt_.get());
  sqlite3_clear_bindings(stmt_.get());
  bound_ = 0;
}

SqliteValueList Statement::MakeRow() const {
  std::vector<std::string> names;
  const int count = sqlite3_column_count(stmt_.get());
  for (int i = 0; i < count; ++i) {
    const char* name = sqlite3_column_name(stmt_.get(), i);
    names.emplace_back(name == nullptr ? "" : name);
  }
  return SqliteValueList(std::move(names));
}

void Statement::ReadRow(SqliteValueList& row) const {
  for (std::size_t i = 0; i < row.Size(); ++i) {
    // One look at the column where the column functions would take three. What it gives may be read
    // only by the thread that the connection belongs to, which is this one.
    sqlite3_value* column = sqlite3_column_value(stmt_.get(), static_cast<int>(i));
    SqliteValue& value = row.ValueAt(i);
    switch (sqlite3_value_type(column)) {
      case SQLITE_NULL:
        value.SetNull();
        break;
      case SQLITE_INTEGER:
      case SQLITE_FLOAT:
        value.SetInteger(sqlite3_value_int64(column));
        break;
      default: {
        const auto* bytes = static_cast<const char*>(sqlite3_value_blob(column));
        const auto size = static_cast<std::size_t>(sqlite3_value_bytes(column));
        value.SetText(bytes == nullptr ? std::string_view() : std::string_view(bytes, size));
      }
    }
  }
}

}  // namespace VrelDRCore
