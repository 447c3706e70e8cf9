#include "hold/runnable.h"

#include <unistd.h>

#include <algorithm>

#include "engine/support/program.h"

namespace VrelDR {

namespace {

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& each : texts) pointers.push_back(each.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Environment::Environment() {
  for (char** each = environ; each != nullptr && *each != nullptr; ++each) {
    variables_.emplace_back(*each);
  }
  Set("PATH", SearchPath());
}

void Environment::Set(const std::string& name, const std::string& value) {
  const auto isNamed = [&](const std::string& each) { return each.rfind(name + "=", 0) == 0; };
  variables_.erase(std::remove_if(variables_.begin(), variables_.end(), isNamed), variables_.end());
  variables_.push_back(name + "=" + value);
}

char* const* Environment::Get() {
  pointers_ = PointersTo(variables_);
  return pointers_.data();
}

GuardProgram Runnable::Prepare(char* const* environment) {
  if (args_.empty()) return {};
  argv_ = PointersTo(args_);
  return {argv_[0], argv_.data(), environment};
}

}  // namespace VrelDR
