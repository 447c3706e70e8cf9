#include "store/table.h"

#include <algorithm>

namespace VrelDR {

namespace {

using VrelDRCore::SqliteValueList;

SqliteValueList ValuesOf(
    std::initializer_list<std::pair<const char*, VrelDRCore::SqliteValue>> all) {
  SqliteValueList values;
  for (const auto& [name, value] : all) values.AddValue(name, value);
  return values;
}

}  // namespace

bool Table::Insert(Fields fields) const {
  VrelDRCore::InsertCommand command;
  command.SetTable(name_);
  command.SetFieldValues(ValuesOf(fields));
  return db_.InsertRecord(command);
}

bool Table::Update(const Condition& condition, Fields fields) const {
  VrelDRCore::UpdateCommand command;
  command.SetTable(name_);
  command.SetCondition(condition);
  command.SetFieldValues(ValuesOf(fields));
  return db_.UpdateRecord(command);
}

bool Table::Delete(const Condition& condition) const {
  return db_.DeleteRecord(name_, condition);
}

bool Table::DeleteWith(const Condition& condition, const char* column,
                       const std::string& text) const {
  std::vector<long> found;
  const auto look = [&](const Values& values) {
    std::string here;
    long seq = 0;
    if (values.GetValue(column, here) && here == text && values.GetValue("seq", seq)) {
      found.push_back(seq);
    }
    return true;
  };
  if (!db_.SelectEach(Select(condition, nullptr), look)) return false;
  return std::all_of(found.begin(), found.end(),
                     [&](long seq) { return Delete(Equal("seq", seq)); });
}

bool Table::GetLastSeq(long& seq) const {
  VrelDRCore::SelectCommand command = Select({}, "seq");
  command.AddField("seq");
  command.SetOrderByDESC();
  command.SetLimit(1);
  Values row;
  return db_.SelectRecord(command, row) && row.GetValue("seq", seq);
}

VrelDRCore::SelectCommand Table::Select(const Condition& condition, const char* order) const {
  VrelDRCore::SelectCommand command;
  command.SetTable(name_);
  command.SetCondition(condition);
  if (order != nullptr) command.AddOrderField(order);
  return command;
}

}  // namespace VrelDR
