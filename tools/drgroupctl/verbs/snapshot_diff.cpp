#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <map>
#include <system_error>

#include "action/tree_diff.h"
#include "groups/catalogue_view.h"
#include "groups/gsnap_check.h"
#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

constexpr std::uint64_t kMostRows = 10000;  // of each target, unless all are wanted

// Where the bytes of targets are, by target.
using Places = std::map<std::string, std::string>;

Places PlacesIn(const VrelDRGroup::GsnapshotInfo& info) {
  CheckUsable(info);
  Places places;
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    places[each.target.GetId()] = AskSnapshot(each.target, each.tsnap_id).path;
  }
  return places;
}

// Those of the same targets as they are now.
Places PlacesNow(const VrelDRGroup::GsnapshotInfo& info) {
  Places places;
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    places[each.target.GetId()] = RequireTarget(each.target.GetId()).path;
  }
  return places;
}

std::string HexOfMalformed(const std::string& path) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  if (IsUtf8(path)) return hex;
  for (const char each : path) {
    const auto byte = static_cast<unsigned char>(each);
    hex += {kDigits[byte >> 4U], kDigits[byte & 15U]};
  }
  return hex;
}

const char* NameOf(Change change) {
  return change == Change::kAdded ? "added" : change == Change::kRemoved ? "removed" : "changed";
}

// What is told of all targets.
class Findings {
 public:
  Findings(const Arguments& args, Warnings& warnings)
      : is_all_(args.Has("--all")), reads_all_(args.Has("--contents")), warnings_(warnings) {}

  void Compare(const std::string& target, const std::string& before, const std::string& after) {
    row_ = Json::Value(Json::objectValue);
    row_["target_id"] = target;
    for (const char* key : {"added", "removed", "changed", "changed_bytes"}) row_[key] = 0U;
    shown_ = 0;
    const OwnedFd oldFd(Open(before));
    const OwnedFd newFd(Open(after));
    if (IsDirectory(oldFd.Get()) && IsDirectory(newFd.Get())) {
      TreeDiff(
          reads_all_,
          [this](const auto& path, Change change, const auto& what) {
            AddPath(path, change, what);
          },
          [this](const auto& text) { warnings_.Print(text); })
          .Compare(oldFd.Get(), before, newFd.Get(), after);
    } else {
      const int error = CompareFiles(oldFd.Get(), newFd.Get(), [this](auto offset, auto length) {
        AddExtent(offset, length);
        return true;
      });
      if (error != 0) throw Unread(after, error);
    }
    targets_.append(row_);
  }

  void AddTo(Report& report) const {
    report.AddField({"is_cut_short", "Cut short, --all shows all", Shown::kIfAny}, is_cut_short_);
    report.AddTable({"targets", "Targets"},
                    {{"target_id", "TARGET"},
                     {"added", "ADDED"},
                     {"removed", "REMOVED"},
                     {"changed", "CHANGED"},
                     {"changed_bytes", "CHANGED BYTES", Shown::kBytes}},
                    targets_);
    report.AddTable({"paths", "Paths"},
                    {{"target_id", "TARGET"},
                     {"change", "CHANGE"},
                     {"path", "PATH"},
                     {"what", "WHAT", Shown::kIfAny}},
                    paths_);
    report.AddTable({"extents", "Extents"},
                    {{"target_id", "TARGET"}, {"offset", "OFFSET"}, {"length", "LENGTH"}},
                    extents_);
  }

 private:
  static Failure Unread(const std::string& path, int error) {
    return {ExitCode::kStorage, "cannot read " + Quote(path) + ": " +
                                    std::generic_category().message(error) +
                                    "; see to it and run it again"};
  }
  static int Open(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd == -1) throw Unread(path, errno);
    return fd;
  }
  static bool IsDirectory(int fd) {
    struct stat found = {};
    return fstat(fd, &found) == 0 && S_ISDIR(found.st_mode);
  }

  bool IsShown() {
    const bool isShown = is_all_ || ++shown_ <= kMostRows;
    is_cut_short_ = is_cut_short_ || !isShown;
    return isShown;
  }
  void AddPath(const std::string& path, Change change, const std::string& what) {
    Json::Value& count = row_[NameOf(change)];
    count = count.asUInt64() + 1;
    if (!IsShown()) return;
    Json::Value row(Json::objectValue);
    row["target_id"] = row_["target_id"];
    row["change"] = NameOf(change);
    row["path"] = path;
    row["path_hex"] = HexOfMalformed(path);
    row["what"] = what;
    paths_.append(row);
  }
  void AddExtent(std::uint64_t offset, std::uint64_t length) {
    row_["changed"] = row_["changed"].asUInt64() + 1;
    row_["changed_bytes"] = Json::UInt64(row_["changed_bytes"].asUInt64() + length);
    if (!IsShown()) return;
    Json::Value row(Json::objectValue);
    row["target_id"] = row_["target_id"];
    row["offset"] = Json::UInt64(offset);
    row["length"] = Json::UInt64(length);
    extents_.append(row);
  }

  bool is_all_;
  bool reads_all_;
  Warnings& warnings_;
  bool is_cut_short_ = false;
  std::uint64_t shown_ = 0;
  Json::Value row_;  // of the target in hand
  Json::Value targets_ = Json::Value(Json::arrayValue);
  Json::Value paths_ = Json::Value(Json::arrayValue);
  Json::Value extents_ = Json::Value(Json::arrayValue);
};

Report RunSnapshotDiff(const Arguments& args, Warnings& warnings) {
  const VrelDRGroup::GsnapshotInfo first = RequireGsnap(args.Text("GSNAP"));
  const Places before = PlacesIn(first);
  const bool isNow = !args.Has("GSNAP2");
  const Places after = isNow ? PlacesNow(first) : PlacesIn(RequireGsnap(args.Text("GSNAP2")));
  Findings findings(args, warnings);
  bool hasCommon = false;
  for (const auto& [target, path] : before) {
    const auto other = after.find(target);
    if (other == after.end()) {
      warnings.Print("target " + Quote(target) + " is in one of the group snapshots only");
      continue;
    }
    hasCommon = true;
    findings.Compare(target, path, other->second);
  }
  for (const auto& [target, path] : after) {
    if (before.count(target) != 0) continue;
    warnings.Print("target " + Quote(target) + " is in one of the group snapshots only");
  }
  if (!hasCommon) {
    throw Failure(ExitCode::kRefused, "group snapshots " + Quote(first.gsnap_id) + " and " +
                                          Quote(args.Text("GSNAP2")) +
                                          " have no target in common: name two of one group");
  }
  Report report;
  report.AddField({"gsnap_id", "From"}, first.gsnap_id);
  report.AddField({"other_gsnap_id", "To", Shown::kIfAny}, args.Text("GSNAP2"));
  report.AddField({"is_now", "To what is there now", Shown::kIfAny}, isNow);
  findings.AddTo(report);
  return report;
}

}  // namespace

Verb SnapshotDiff() {
  return {
      "snapshot diff",
      "tell what differs between two group snapshots",
      {"Compares each target in GSNAP with the same target in GSNAP2, or as it is now. Of "
       "shares and guests the paths are told that were added, removed and changed, with what: "
       "type, size, contents, target (of a link), device, mode, owner, times. The contents of "
       "files of the same size and time of modification are taken for the same unless "
       "--contents has all of them read. Extended attributes are not compared. Of a LUN, which "
       "is always read, the extents are told that differ.",
       "What is compared with now may change meanwhile. The exit code says nothing of "
       "differences: it is 0 when everything was compared. Paths that are not UTF-8 are in "
       "JSON with U+FFFD in \"path\", and with all their bytes in \"path_hex\". The first 10000 "
       "rows of each target are shown, and all of them counted."},
      "Nothing.",
      {Gsnap(),
       {"GSNAP2", Value::kGsnap, "GSNAP2", "the later group snapshot; else what is there now"}},
      {Flag("--contents", "read all files, also those of the same size and time"),
       Flag("--all", "show all that differs, however much it is")},
      RunSnapshotDiff};
}

}  // namespace drgroupctl
