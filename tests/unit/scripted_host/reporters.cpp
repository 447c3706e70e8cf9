#include <cxxabi.h>
#include <vreldr/report.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

#include "current.h"
#include "text.h"

namespace VrelDR {
namespace {

using scripted_host::Call;
using scripted_host::Current;
using scripted_host::Fails;
using scripted_host::Record;

// The name of an object's class, without its namespace.
std::string ClassOf(const Reporter& reporter) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(typeid(reporter).name(), nullptr, nullptr, &status), std::free);
  const std::string whole = status == 0 ? name.get() : typeid(reporter).name();
  return whole.substr(whole.rfind(':') + 1);
}

bool Answer(const std::string& call) {
  Record(call);
  return Fails(call) == nullptr;
}

// A snapshot with what tells one of its kind from another.
std::string TextOf(const Operation::Snapshot& snapshot) {
  return snapshot.snap_id + " of " + std::to_string(snapshot.create_time);
}

}  // namespace

bool Reporter::ReadReport(Report& report) const {
  const std::string call =
      ClassOf(*this) + Call("", plan_id_, static_cast<int>(type_)) + ".ReadReport()";
  Record(call);
  if (Fails(call) != nullptr) return false;
  const auto found = Current().reports.find({plan_id_, type_});
  if (found == Current().reports.end()) return false;
  report.FromJson(found->second);
  return true;
}

bool PendingSnapReporter::Add(const Operation::Snapshot& snapshot) const {
  return Answer(Call("PendingSnapReporter", plan_id_) + Call(".Add", TextOf(snapshot)));
}

bool PendingSnapReporter::Remove(const Operation::Snapshot& snapshot) const {
  return Answer(Call("PendingSnapReporter", plan_id_) + Call(".Remove", TextOf(snapshot)));
}

}  // namespace VrelDR
