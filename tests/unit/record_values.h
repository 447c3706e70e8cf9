#pragma once

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>
#include <vreldrcore/sqlite_value.h>

#include <memory>
#include <string>
#include <vector>

// JSON and rows as literals and as text, so that a test shows the whole of what it expects.
namespace unit {

inline Json::Value Json(const std::string& text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  std::string errors;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
    ADD_FAILURE() << "the test's JSON is wrong: " << errors;
  }
  return value;
}

// The values of a row, in order: names with numbers as they are and texts between apostrophes.
inline std::vector<std::string> Values(const VrelDRCore::SqliteValueList& list) {
  std::vector<std::string> values;
  for (std::size_t index = 0; index < list.Size(); ++index) {
    const VrelDRCore::SqliteValue& value = list.ValueAt(index);
    const bool isText = value.GetKind() == VrelDRCore::SqliteValue::Kind::kText;
    values.push_back(list.NameAt(index) + "=" +
                     (value.IsNull() ? "NULL"
                      : isText       ? "'" + value.Text() + "'"
                                     : value.AsText()));
  }
  return values;
}

struct Column {
  std::string name;
  VrelDRCore::SqliteValue value;
};

inline VrelDRCore::SqliteValueList Row(const std::vector<Column>& columns) {
  VrelDRCore::SqliteValueList list;
  for (const Column& column : columns) list.AddValue(column.name, column.value);
  return list;
}

// JSON of every kind that is not an object.
inline std::vector<Json::Value> NotObjects() {
  return {Json("null"),
          Json("true"),
          Json("7"),
          Json("-1.5"),
          Json("\"text\""),
          Json("[]"),
          Json("[{\"tsnap_id\": \"s\"}]")};
}

}  // namespace unit
