#pragma once

#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldrcore/sqlite_value.h"

namespace VrelDRCore {

// A C++ record that maps to one row of a table.
class VREL_API SqliteRecord {
 public:
  SqliteRecord() = default;
  SqliteRecord(const SqliteRecord&) = default;
  SqliteRecord(SqliteRecord&&) = default;
  SqliteRecord& operator=(const SqliteRecord&) = default;
  SqliteRecord& operator=(SqliteRecord&&) = default;

  // The values of those of `fields` that the record has; unknown names are passed over.
  virtual SqliteValueList ToSqliteValues(const std::vector<std::string>& fields) const = 0;

  // Takes over the columns that `values` holds. False when it holds none of the record's columns;
  // an empty list changes nothing and is no failure.
  virtual bool FromSqliteValues(const SqliteValueList& values) = 0;

  // The names of all columns of the record.
  virtual std::vector<std::string> ListSqliteField() const = 0;

  virtual ~SqliteRecord() = default;

  // The record's full row.
  SqliteValueList ToSqliteRecord() const { return ToSqliteValues(ListSqliteField()); }
};

}  // namespace VrelDRCore
