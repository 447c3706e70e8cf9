#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vrelcore/export.h"

namespace VrelDRCore {

// One value of a column: nothing (NULL), a 64-bit integer or a text. Booleans are the integers 0
// and 1. A text may hold any bytes, zero bytes included.
class VREL_API SqliteValue {
 public:
  enum class Kind { kNull, kInteger, kText };

  SqliteValue() = default;
  SqliteValue(const std::string& value) : kind_(Kind::kText), text_(value) {}  // NOLINT: implicit
  SqliteValue(std::string&& value)  // NOLINT: implicit by design
      : kind_(Kind::kText), text_(std::move(value)) {}
  SqliteValue(const char* value) : kind_(Kind::kText), text_(value) {}  // NOLINT: implicit
  SqliteValue(int value) : kind_(Kind::kInteger), number_(value) {}     // NOLINT: implicit
  SqliteValue(long value) : kind_(Kind::kInteger), number_(value) {}    // NOLINT: implicit
  SqliteValue(bool value) : kind_(Kind::kInteger), number_(value) {}    // NOLINT: implicit

  Kind GetKind() const { return kind_; }
  bool IsNull() const { return kind_ == Kind::kNull; }

  // The value as text (an integer in decimal, NULL as the empty text) and as a number (a text as
  // its leading decimal digits, NULL as 0).
  std::string AsText() const;
  std::int64_t AsInteger() const;

  // The stored text itself; empty when the value is not a text.
  const std::string& Text() const { return text_; }

  // Overwrite the value in place, keeping the text's memory for the next one.
  void SetNull() {
    kind_ = Kind::kNull;
    text_.clear();
  }
  void SetInteger(std::int64_t value) {
    kind_ = Kind::kInteger;
    number_ = value;
    text_.clear();
  }
  void SetText(std::string_view value) {
    kind_ = Kind::kText;
    text_.assign(value);
  }

 private:
  Kind kind_ = Kind::kNull;
  std::int64_t number_ = 0;
  std::string text_;
};

// The named values of one row, in order. Copies share their names.
class VREL_API SqliteValueList {
 public:
  SqliteValueList() = default;
  // A row of NULLs with these column names.
  explicit SqliteValueList(std::vector<std::string> names);

  // Appends a value; a name may appear more than once, and reading finds the first.
  void AddValue(const std::string& name, const SqliteValue& value);

  // Stores the value of column `name` in `out` and returns true when the column is there and not
  // NULL; otherwise returns false and leaves `out` alone. Numbers narrow as C does: an unsigned int
  // read of 4294967296 is 0. T is std::string, bool, int, unsigned int or long.
  template <class T>
  bool GetValue(std::string_view name, T& out) const;

  bool Empty() const { return values_.empty(); }
  std::size_t Size() const { return values_.size(); }
  const std::string& NameAt(std::size_t index) const { return (*names_)[index]; }
  const SqliteValue& ValueAt(std::size_t index) const { return values_[index]; }
  SqliteValue& ValueAt(std::size_t index) { return values_[index]; }

 private:
  const SqliteValue* Find(std::string_view name) const;

  std::shared_ptr<std::vector<std::string>> names_;
  std::vector<SqliteValue> values_;
};

template <>
VREL_API bool SqliteValueList::GetValue(std::string_view name, std::string& out) const;
template <>
VREL_API bool SqliteValueList::GetValue(std::string_view name, bool& out) const;
template <>
VREL_API bool SqliteValueList::GetValue(std::string_view name, int& out) const;
template <>
VREL_API bool SqliteValueList::GetValue(std::string_view name, unsigned int& out) const;
template <>
VREL_API bool SqliteValueList::GetValue(std::string_view name, long& out) const;

}  // namespace VrelDRCore
