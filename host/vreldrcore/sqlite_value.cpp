#include "vreldrcore/sqlite_value.h"

#include <algorithm>
#include <cstdlib>

namespace VrelDRCore {

std::string SqliteValue::AsText() const {
  return kind_ == Kind::kInteger ? std::to_string(number_) : text_;
}

std::int64_t SqliteValue::AsInteger() const {
  return kind_ == Kind::kText ? std::strtoll(text_.c_str(), nullptr, 10) : number_;
}

SqliteValueList::SqliteValueList(std::vector<std::string> names)
    : names_(std::make_shared<std::vector<std::string>>(std::move(names))),
      values_(names_->size()) {}

void SqliteValueList::AddValue(const std::string& name, const SqliteValue& value) {
  if (!names_) {
    names_ = std::make_shared<std::vector<std::string>>();
  } else if (names_.use_count() > 1) {
    names_ = std::make_shared<std::vector<std::string>>(*names_);
  }
  names_->push_back(name);
  values_.push_back(value);
}

const SqliteValue* SqliteValueList::Find(std::string_view name) const {
  if (!names_) return nullptr;
  const auto it = std::find(names_->begin(), names_->end(), name);
  if (it == names_->end()) return nullptr;
  const SqliteValue& value = values_[static_cast<std::size_t>(it - names_->begin())];
  return value.IsNull() ? nullptr : &value;
}

template <>
bool SqliteValueList::GetValue(std::string_view name, std::string& out) const {
  const SqliteValue* value = Find(name);
  if (value == nullptr) return false;
  if (value->GetKind() == SqliteValue::Kind::kText) {
    out = value->Text();
  } else {
    out = value->AsText();
  }
  return true;
}

template <>
bool SqliteValueList::GetValue(std::string_view name, bool& out) const {
  const SqliteValue* value = Find(name);
  if (value == nullptr) return false;
  out = value->AsInteger() != 0;
  return true;
}

template <>
bool SqliteValueList::GetValue(std::string_view name, int& out) const {
  const SqliteValue* value = Find(name);
  if (value == nullptr) return false;
  out = static_cast<int>(value->AsInteger());
  return true;
}

template <>
bool SqliteValueList::GetValue(std::string_view name, unsigned int& out) const {
  const SqliteValue* value = Find(name);
  if (value == nullptr) return false;
  out = static_cast<unsigned int>(value->AsInteger());
  return true;
}

template <>
bool SqliteValueList::GetValue(std::string_view name, long& out) const {
  const SqliteValue* value = Find(name);
  if (value == nullptr) return false;
  out = static_cast<long>(value->AsInteger());
  return true;
}

}  // namespace VrelDRCore
