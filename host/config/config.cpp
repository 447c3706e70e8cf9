#include "config/config.h"

#include <fcntl.h>
#include <json/reader.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <set>
#include <system_error>

#include "config/quoted.h"
#include "vreldrcore/json.h"

namespace VrelHost {

namespace {

using VrelDRCore::JsonUtil::AsText;
using VrelDRCore::JsonUtil::Member;

constexpr const char* kDefaultPath = "/etc/vreldr/vreldr.json";
constexpr const char* kDefaultStateDir = "/var/lib/vreldr";

bool ReadFile(const std::string& path, std::string& text, std::string& problem) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  int error = fd == -1 ? errno : 0;
  char buffer[4096];
  while (error == 0) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got == 0) break;
    if (got > 0) {
      text.append(buffer, static_cast<std::size_t>(got));
    } else if (errno != EINTR) {
      error = errno;
    }
  }
  if (fd != -1) close(fd);
  if (error == 0) return true;
  problem = error == ENOENT ? "it does not exist; make it, or name another with VRELDR_CONFIG"
                            : "cannot read it: " + std::generic_category().message(error);
  return false;
}

bool ParseJson(const std::string& text, Json::Value& root, std::string& problem) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string errors;
  bool parsed = false;
  try {
    parsed = reader->parse(text.data(), text.data() + text.size(), &root, &errors);
  } catch (const std::exception& e) {  // values nested deeper than the reader goes
    errors = e.what();
  }
  if (parsed && root.isObject()) return true;
  std::replace(errors.begin(), errors.end(), '\n', ' ');
  while (!errors.empty() && errors.back() == ' ') errors.pop_back();
  problem = "it is not a JSON object; correct it";
  if (!errors.empty()) problem += " (" + errors + ")";
  return false;
}

// Whether `value` is null or an array of objects; `name` is the member it was read from.
bool IsObjects(const Json::Value& value, const std::string& name, std::string& problem) {
  bool good = value.isNull() || value.isArray();
  if (value.isArray()) {
    good =
        std::all_of(value.begin(), value.end(), [](const auto& each) { return each.isObject(); });
  }
  if (!good) problem = Quoted(name) + " must be an array of objects; correct it";
  return good;
}

// Reads the text member `key`, which names an entry of the array `list` and has to be unique in it.
bool ReadUnique(const Json::Value& entry, const std::string& list, const std::string& key,
                std::set<std::string>& seen, std::string& out, std::string& problem) {
  out = AsText(Member(entry, key));
  if (out.empty()) {
    problem = "an entry of " + Quoted(list) + " has no text " + Quoted(key) + "; give it one";
    return false;
  }
  if (!seen.insert(out).second) {
    problem = Quoted(list) + " has more than one entry with the " + key + " " + Quoted(out) +
              "; rename or remove one";
    return false;
  }
  return true;
}

// A list of objects that are told apart by their "id".
bool ReadEntries(const Json::Value& root, const char* list, std::vector<Json::Value>& entries,
                 std::string& problem) {
  const Json::Value found = Member(root, list);
  if (!IsObjects(found, list, problem)) return false;
  std::set<std::string> seen;
  for (const Json::Value& entry : found) {
    std::string id;
    if (!ReadUnique(entry, list, "id", seen, id, problem)) return false;
    entries.push_back(entry);
  }
  return true;
}

bool Interpret(const Json::Value& root, Config& config, std::string& problem) {
  for (const std::string& name : root.getMemberNames()) {
    if (name != "state_dir" && name != "volumes" && name != "nodes" && name != "credentials") {
      problem = "it has an unknown member " + Quoted(name) +
                "; known are \"state_dir\", \"volumes\", \"nodes\" and \"credentials\"";
      return false;
    }
  }
  const Json::Value stateDir = root.get("state_dir", kDefaultStateDir);
  config.state_dir = AsText(stateDir);
  if (config.state_dir.empty() || config.state_dir.front() != '/') {
    problem = "\"state_dir\" must be an absolute path; correct it";
    return false;
  }
  const Json::Value volumes = Member(root, "volumes");
  if (!IsObjects(volumes, "volumes", problem)) return false;
  std::set<std::string> seen;
  for (const Json::Value& entry : volumes) {
    VolumeConfig volume;
    if (!ReadUnique(entry, "volumes", "name", seen, volume.name, problem)) return false;
    volume.engine = AsText(Member(entry, "engine"));
    if (volume.engine.empty()) {
      problem = "volume " + Quoted(volume.name) +
                " has no text \"engine\"; give it one, such as \"local\"";
      return false;
    }
    volume.settings = entry;
    config.volumes.push_back(volume);
  }
  return ReadEntries(root, "nodes", config.nodes, problem) &&
         ReadEntries(root, "credentials", config.credentials, problem);
}

}  // namespace

std::string ConfigPath() {
  const char* named = std::getenv("VRELDR_CONFIG");
  return named == nullptr || *named == '\0' ? kDefaultPath : named;
}

bool ReadConfig(Config& config, std::string& problem) {
  Config read;
  read.file = ConfigPath();
  std::string text;
  Json::Value root;
  if (!ReadFile(read.file, text, problem) || !ParseJson(text, root, problem) ||
      !Interpret(root, read, problem)) {
    problem = "configuration " + Quoted(read.file) + ": " + problem;
    return false;
  }
  config = std::move(read);
  return true;
}

}  // namespace VrelHost
