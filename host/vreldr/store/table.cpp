#include "store/table.h"

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

bool Table::Update(Where where, Fields fields) const {
  VrelDRCore::UpdateCommand command;
  command.SetTable(name_);
  for (const Equal& each : where) command.AddCondition(each);
  command.SetFieldValues(ValuesOf(fields));
  return db_.UpdateRecord(command);
}

bool Table::Delete(Where where) const {
  VrelDRCore::DeleteCommand command;
  command.SetTable(name_);
  for (const Equal& each : where) command.AddCondition(each);
  return db_.DeleteRecord(command);
}

VrelDRCore::SelectCommand Table::Select(Where where, const char* order) const {
  VrelDRCore::SelectCommand command;
  command.SetTable(name_);
  for (const Equal& each : where) command.AddCondition(each);
  if (order != nullptr) command.AddOrderField(order);
  return command;
}

}  // namespace VrelDR
