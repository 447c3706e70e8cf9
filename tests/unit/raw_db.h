#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

namespace unit {

// A database file as the SQLite library itself sees it. A failure fails the test.
class RawDb {
 public:
  // Opens the file at `path`, which must exist.
  explicit RawDb(const std::string& path);

  void Exec(const std::string& sql);

  // The rows of a query, each as its values joined by "|": numbers as they are, texts between
  // apostrophes with their bytes as they are, NULL as NULL.
  std::vector<std::string> Rows(const std::string& sql);

 private:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
  };
  std::unique_ptr<sqlite3, Close> db_;
};

}  // namespace unit
