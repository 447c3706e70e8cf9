#include "fake_store.h"

#include <json/reader.h>
#include <json/writer.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "engine/support/child.h"

namespace VrelDR::Fake {

namespace fs = std::filesystem;

namespace {

constexpr const char* kPartNames[] = {"works", "quiet", "replica"};

fs::filesystem_error Failure(const char* what, const fs::path& file) {
  return {what, file, std::make_error_code(std::errc::io_error)};
}

std::string ToText(const State& state) {
  Json::Value json(Json::objectValue);
  json["id"] = state.id;
  json["part"] = kPartNames[static_cast<int>(state.part)];
  json["peers"] = Json::Value(Json::arrayValue);
  for (const Peer& each : state.peers) {
    Json::Value peer(Json::objectValue);
    peer["path"] = each.path;
    peer["locator"] = each.locator;
    json["peers"].append(peer);
  }
  return Json::writeString(Json::StreamWriterBuilder(), json);
}

bool FromText(const std::string& text, State& state) {
  Json::Value json;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &json, nullptr)) return false;
  const auto* const part =
      std::find(std::begin(kPartNames), std::end(kPartNames), json["part"].asString());
  if (part == std::end(kPartNames)) return false;
  state.id = json["id"].asString();
  state.part = static_cast<Part>(part - std::begin(kPartNames));
  for (const Json::Value& each : json["peers"]) {
    state.peers.push_back({each["path"].asString(), each["locator"].asString()});
  }
  return true;
}

}  // namespace

Status Store::Reach() const {
  if (!fs::is_directory(path_)) {
    return {kErrVolumeMissing, Quoted(path_) + " is missing, so the volume is not there"};
  }
  if (Does(kUnreachable)) return {kErrUnreachable, Quoted(path_) + " gives no answer"};
  return {};
}

Status Store::ReachOwn() const {
  Status status = Reach();
  if (!status.IsOk() || !expected_) return status;
  const std::optional<std::string> found = Read(Own() / "identity");
  if (found && *found == VrelHost::ToText(*expected_)) return {};
  return {kErrVolumeMissing, Quoted(path_) + " is not volume " + Quoted(expected_->name) +
                                 ", so the volume is not there"};
}

Status Store::CheckWritable() const {
  return Does(kReadOnly) ? StatusOfErrno(EROFS, path_) : Status();
}

Status Store::Load(const TargetPlace& place, State& state) const {
  const std::optional<std::string> text =
      place.locator.empty() ? std::nullopt : Read(DirOf(place) / "state");
  if (!text) {
    return {kErrTargetMissing, "target " + Quoted(place.id) + " is not at " +
                                   Quoted(place.locator) + " in " + Quoted(path_)};
  }
  state = {};
  if (FromText(*text, state)) return {};
  return {kErrIo, Quoted(DirOf(place) / "state") + " is damaged"};
}

void Store::Save(const fs::path& dir, const State& state) const {
  Write(dir / "state", ToText(state));
}

std::vector<std::string> Store::Locators() const {
  std::vector<std::string> locators;
  for (const auto& each : fs::directory_iterator(path_)) {
    if (fs::exists(each.path() / "state")) locators.push_back(each.path().filename());
  }
  return locators;
}

std::optional<std::string> Store::Read(const fs::path& file) const {
  if (!fs::exists(file)) return std::nullopt;
  std::ifstream in(file, std::ios::binary);
  if (!in) throw Failure("read", file);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void Store::Write(const fs::path& file, const std::string& text) const {
  const fs::path work = file.string() + ".new";
  {
    std::ofstream out(work, std::ios::binary | std::ios::trunc);
    out << text;
    out.flush();
    if (!out) throw Failure("write", work);
  }
  fs::rename(work, file);
}

Status CopyTree(const fs::path& from, const fs::path& to, Watch& watch, bool hasBytes) {
  std::vector<std::string> args = {"cp", "-a", "-T"};
  if (!hasBytes) args.emplace_back("--attributes-only");
  args.insert(args.end(), {"--", from, to});
  Child copier;
  Status status = watch.Wait();
  if (status.IsOk()) status = copier.Start(args, "coreutils", {});
  while (status.IsOk() && copier.IsRunning()) {
    status = watch.Wait();
    if (status.IsOk()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (status.IsOk()) return copier.Finish();
  (void)copier.Stop();
  return status;
}

Status WaitWhileSlow(const Store& store, Watch& watch) {
  Status status;
  while (status.IsOk() && store.Does(kSlow)) {
    std::this_thread::sleep_for(kTick);
    status = watch.Wait();
  }
  return status;
}

}  // namespace VrelDR::Fake
