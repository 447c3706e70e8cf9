#include "raw_db.h"

#include <gtest/gtest.h>

namespace unit {
namespace {

struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

std::string Value(sqlite3_stmt* statement, int column) {
  const int type = sqlite3_column_type(statement, column);
  if (type == SQLITE_NULL) return "NULL";
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  const std::string text = bytes == nullptr ? std::string() : std::string(bytes, size);
  switch (type) {
    case SQLITE_INTEGER:
      return std::to_string(sqlite3_column_int64(statement, column));
    case SQLITE_TEXT:
      return "'" + text + "'";
    default:
      return "type " + std::to_string(type) + " " + text;
  }
}

}  // namespace

RawDb::RawDb(const std::string& path) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK)
      << "cannot open " << path << ": " << sqlite3_errmsg(db);
  db_.reset(db);
}

void RawDb::Exec(const std::string& sql) {
  EXPECT_EQ(sqlite3_exec(db_.get(), sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << sql << ": " << sqlite3_errmsg(db_.get());
}

std::vector<std::string> RawDb::Rows(const std::string& sql) {
  sqlite3_stmt* prepared = nullptr;
  EXPECT_EQ(sqlite3_prepare_v2(db_.get(), sql.c_str(), -1, &prepared, nullptr), SQLITE_OK)
      << sql << ": " << sqlite3_errmsg(db_.get());
  const std::unique_ptr<sqlite3_stmt, Finalize> statement(prepared);
  std::vector<std::string> rows;
  int result = SQLITE_DONE;
  while ((result = sqlite3_step(statement.get())) == SQLITE_ROW) {
    std::string row;
    for (int column = 0; column < sqlite3_column_count(statement.get()); ++column) {
      row += (column == 0 ? "" : "|") + Value(statement.get(), column);
    }
    rows.push_back(row);
  }
  EXPECT_EQ(result, SQLITE_DONE) << sql << ": " << sqlite3_errmsg(db_.get());
  return rows;
}

}  // namespace unit
