#include "current.h"

#include <stdexcept>

namespace scripted_host {
namespace {

Script*& Slot() {
  static Script* current = nullptr;
  return current;
}

}  // namespace

void Install(Script* script) {
  Slot() = script;
}

Script& Current() {
  if (Slot() == nullptr) throw std::logic_error("the host was called without a script");
  return *Slot();
}

void Record(const std::string& call) {
  Script& script = Current();
  script.calls.push_back(call);
  if (script.on_call) script.on_call(call);
}

const Failure* Fails(const std::string& call) {
  const auto found = Current().failures.find(call);
  return found == Current().failures.end() ? nullptr : &found->second;
}

}  // namespace scripted_host
