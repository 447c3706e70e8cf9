#include "engine/support/activity.h"

#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

namespace VrelDR {

namespace {

constexpr auto kLine = std::numeric_limits<std::streamsize>::max();

// The ticks for which it has computed.
std::uint64_t ComputedBy(const std::string& proc) {
  constexpr int kBefore = 11;  // fields between the name, in parentheses, and the two wanted
  std::ifstream stat(proc + "/stat");
  std::string text;
  std::getline(stat, text);
  std::size_t at = text.rfind(')');
  for (int field = 0; at != std::string::npos && field <= kBefore; ++field) {
    at = text.find(' ', at + 1);
  }
  if (at == std::string::npos) return 0;
  char* end = nullptr;
  const std::uint64_t user = std::strtoull(text.c_str() + at, &end, 10);
  return user + std::strtoull(end, nullptr, 10);
}

std::uint64_t MovedBy(const std::string& proc) {
  std::ifstream io(proc + "/io");
  std::uint64_t sum = 0;
  std::uint64_t value = 0;
  for (std::string name; io >> name >> value; io.ignore(kLine, '\n')) {
    if (name == "rchar:" || name == "wchar:") sum += value;
  }
  return sum;
}

}  // namespace

std::uint64_t ActivityOf(pid_t pid) {
  const std::string proc = "/proc/" + std::to_string(pid);
  std::uint64_t sum = ComputedBy(proc) + MovedBy(proc);
  std::error_code error;
  for (const auto& task : std::filesystem::directory_iterator(proc + "/task", error)) {
    std::ifstream children(task.path() / "children");
    for (pid_t child = 0; children >> child;) sum += ActivityOf(child);
  }
  return sum;
}

}  // namespace VrelDR
