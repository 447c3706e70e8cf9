#pragma once

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

namespace drgroupctl {

// How a value is shown to people; programs always get it as it is.
enum class Shown {
  kAsItIs,
  kBytes,  // with a unit
  kIfAny,  // left out while it is empty: a column in every row; a field also when it is null or
           // false
  kTime,   // seconds since the epoch as a date; 0 is none
  kAge,    // a number of seconds; less than 0 for a time that lies ahead
};

struct Column {
  std::string key;    // the member of a JSON object
  std::string title;  // for people
  Shown shown = Shown::kAsItIs;
};

// What a verb has to say, as plain data: formatters turn it into text.
class Report {
 public:
  // One of the three, with what it is called in JSON and for people.
  struct Part {
    enum class Kind { kField, kTable, kText };
    Kind kind;
    Column name;
    Json::Value value;            // a field's value, a table's rows (an array of objects), a text
    std::vector<Column> columns;  // of a table
  };

  // Keys are unique and never change: programs read them.
  void AddField(const Column& name, const Json::Value& value) {
    parts_.push_back({Part::Kind::kField, name, value, {}});
  }
  void AddTable(Column name, std::vector<Column> columns, Json::Value rows) {
    parts_.push_back({Part::Kind::kTable, std::move(name), std::move(rows), std::move(columns)});
  }
  // A sentence for people only.
  void AddText(const std::string& text) {
    parts_.push_back({Part::Kind::kText, {}, Json::Value(text), {}});
  }

  // What the tool ends with in place of 0: for verbs whose answer is their exit code.
  void SetExitCode(int code) { exit_code_ = code; }
  int GetExitCode() const { return exit_code_; }

  const std::vector<Part>& Parts() const { return parts_; }

 private:
  std::vector<Part> parts_;
  int exit_code_ = 0;
};

}  // namespace drgroupctl
