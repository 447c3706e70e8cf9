#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "store/rows.h"
#include "vreldrcore/sqlite_db.h"

namespace VrelDR {

// Reading the columns of one row, and numbers as they are written.
template <class T>
T GetNumber(const VrelDRCore::SqliteValueList& values, const char* name) {
  long number = 0;
  values.GetValue(name, number);
  return static_cast<T>(number);
}
inline std::string GetText(const VrelDRCore::SqliteValueList& values, const char* name) {
  std::string text;
  values.GetValue(name, text);
  return text;
}
template <class T>
long Number(T value) {
  return static_cast<long>(value);
}

// One table of the records. Its record set derives from it, and nobody else reads or writes the
// table. All calls tell whether the database did what was asked, which it remembers otherwise.
class Table {
 protected:
  using Equal = VrelDRCore::SqliteEqual;
  using Where = std::initializer_list<Equal>;  // all of them
  using Values = VrelDRCore::SqliteValueList;
  using Fields = std::initializer_list<std::pair<const char*, VrelDRCore::SqliteValue>>;

  // The database must outlive the object.
  Table(const VrelDRCore::SqliteDB& db, const char* name) : db_(db), name_(name) {}

  bool Insert(Fields fields) const;
  bool Update(Where where, Fields fields) const;
  bool Delete(Where where) const;

  // Appends what `read` makes of every row that is selected.
  template <class Row>
  bool List(Where where, const char* order, Row (*read)(const Values&),
            std::vector<Row>& rows) const {
    return db_.SelectEach(Select(where, order), [&](const Values& values) {
      rows.push_back(read(values));
      return true;
    });
  }
  // Puts what `read` makes of the first row into `row`, which is empty when there is none.
  template <class Row>
  bool Get(Where where, Row (*read)(const Values&), std::optional<Row>& row) const {
    row.reset();
    return db_.SelectEach(Select(where, nullptr), [&](const Values& values) {
      row = read(values);
      return false;
    });
  }

 private:
  VrelDRCore::SelectCommand Select(Where where, const char* order) const;

  const VrelDRCore::SqliteDB& db_;
  VrelDRCore::SqliteTableHandler name_;
};

}  // namespace VrelDR
