#include <algorithm>
#include <chrono>
#include <ctime>
#include <deque>
#include <list>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include "action/group_action.h"
#include "action/recorded_run.h"
#include "action/scheduled_run.h"
#include "groups/group_store.h"
#include "host/calendar.h"
#include "host/program.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kScanEvery = 60s;  // as long as something runs
constexpr auto kBusyPatience = 60s;
constexpr std::size_t kMostOfAKind = 4;  // at a time

struct Item {
  std::string group;
  std::string kind;
  auto operator<=>(const Item&) const = default;
};

Verb VerbOf(const std::string& kind) {
  if (kind == "snapshot") return SnapshotCreate();
  return kind == "sync" ? Sync() : SnapshotPrune();
}

// Another action of the group is in the way for a short time only, unless it is a long one.
void RunPatiently(const Item& item, std::optional<RecordedRun>& run, Warnings& warnings) {
  const Verb verb = VerbOf(item.kind);
  Arguments args;
  args.Set("GROUP", {item.group});
  if (item.kind == "prune") args.Set("--yes", {});
  const auto deadline = steady_clock::now() + kBusyPatience;
  while (true) {
    try {
      run.emplace(verb, args, warnings);
      run->Run();
      return;
    } catch (const Failure& failure) {
      if (failure.code != ExitCode::kBusy || steady_clock::now() >= deadline) throw;
    }
    std::this_thread::sleep_for(1s);
  }
}

// Where the host cannot tell, the run itself fails with the reason.
std::string WhyPassedOver(const Group& group, const std::string& kind) {
  try {
    const std::vector<std::string> targets = TargetIds(group);
    return drgroupctl::WhyPassedOver(targets, kind, LookAtPlans(targets));
  } catch (const Failure&) {
    return {};
  }
}

Json::Value RowOf(const Item& item, const std::string& result, const std::string& message) {
  Json::Value row(Json::objectValue);
  row["group_id"] = item.group;
  row["kind"] = item.kind;
  row["result"] = result;
  row["message"] = message;
  return row;
}

Report ReportOf(const Json::Value& rows) {
  Report report;
  report.AddTable({"runs", "Runs"},
                  {{"group_id", "GROUP"},
                   {"kind", "KIND"},
                   {"result", "RESULT"},
                   {"message", "MESSAGE", Shown::kIfAny}},
                  rows);
  return report;
}

// Runs what the mark says is due. Nothing is run by an elapse that is not on disk as dealt with.
void RunDue(const Group& group, const std::string& kind, ScheduleMark mark, Calendar& calendar,
            std::optional<RecordedRun>& run, Warnings& warnings) {
  const std::int64_t now = std::time(nullptr);
  const ScheduleMark before = mark;
  mark.last = now;
  mark.next = calendar.Next(mark.calendar, now);
  mark.message = WhyPassedOver(group, kind);
  mark.result = mark.message.empty() ? "running" : "skipped";
  if (mark.message.empty()) mark.begin_time = now;
  WriteMark(group.directory, kind, mark);
  if (!mark.message.empty()) return;
  try {
    RunPatiently({group.id, kind}, run, warnings);
    mark.result = "done";
    WriteMark(group.directory, kind, mark);
  } catch (const Failure& failure) {
    const bool isBusy = failure.code == ExitCode::kBusy;  // it was not begun, and stays due
    if (isBusy) mark = before;
    mark.result = isBusy ? "busy" : failure.code == ExitCode::kStopped ? "stopped" : "failed";
    mark.message = failure.message;
    WriteMark(group.directory, kind, mark);
    throw;
  }
}

// In this process.
Report RunOne(const Item& item, Warnings& warnings) {
  const Group group = LoadGroup(item.group);
  if (group.schedule.count(item.kind) == 0) {
    throw Failure(ExitCode::kRefused, "group " + Quote(item.group) +
                                          " has no schedule for --kind " + item.kind +
                                          ": set one with \"drgroupctl schedule set\"");
  }
  Calendar calendar;
  std::optional<RecordedRun> run;  // tells the hook when the lock is free
  const auto lock = LockSchedule(group.directory, item.kind);
  Json::Value rows(Json::arrayValue);
  if (!lock) {
    rows.append(RowOf(item, "running", ""));
    return ReportOf(rows);
  }
  const std::int64_t now = std::time(nullptr);
  const ScheduleMark mark = BringUpToDate(group, item.kind, now, calendar);
  if (IsDue(mark, now)) {
    RunDue(group, item.kind, mark, calendar, run, warnings);
    const auto after = ReadMark(group.directory, item.kind).value_or(ScheduleMark());
    rows.append(RowOf(item, after.result, after.message));
  }
  return ReportOf(rows);
}

// Runs what is due of many groups, each in a process of its own, so that a sync that takes hours
// keeps nothing else waiting, and goes on looking for what is due until nothing runs any more.
class Runner {
 public:
  explicit Runner(std::vector<std::string> groups) : groups_(std::move(groups)) {}

  Report Run() {
    Scan();
    StartWaiting();
    auto scanned = steady_clock::now();
    while (!running_.empty()) {
      ReapOne();
      if (steady_clock::now() - scanned >= kScanEvery) {
        Scan();
        scanned = steady_clock::now();
      }
      StartWaiting();
    }
    Report report = ReportOf(rows_);
    report.SetExitCode(worst_);
    return report;
  }

 private:
  struct Child {
    Item item;
    std::string directory;
    Program program;
  };

  void Note(const Item& item, const std::string& result, const std::string& message, int code) {
    rows_.append(RowOf(item, result, message));
    worst_ = std::max(worst_, code);
  }

  void Fail(const Item& item, const Failure& failure) {
    PrintError(failure.message);
    Note(item, "failed", failure.message, static_cast<int>(failure.code));
  }

  bool IsHere(const Item& item) const {
    return std::find(waiting_.begin(), waiting_.end(), item) != waiting_.end() ||
           std::any_of(running_.begin(), running_.end(),
                       [&](const Child& each) { return each.item == item; });
  }

  void Scan() {
    Calendar calendar;  // of this moment: what is the same question is asked once
    const std::int64_t now = std::time(nullptr);
    for (const std::string& id : groups_.empty() ? ListGroupIds() : groups_) {
      try {
        const Group group = LoadGroup(id);
        for (const std::string& kind : ScheduledKinds()) {
          if (group.schedule.count(kind) != 0) ScanKind(group, kind, now, calendar);
        }
      } catch (const Failure& failure) {  // the others are run all the same
        if (failed_.insert(id).second) Fail({id, ""}, failure);
      }
    }
  }

  void ScanKind(const Group& group, const std::string& kind, std::int64_t now, Calendar& calendar) {
    const Item item{group.id, kind};
    if (IsHere(item)) return;
    try {
      const auto lock = LockSchedule(group.directory, kind);
      if (lock && IsDue(BringUpToDate(group, kind, now, calendar), now)) waiting_.push_back(item);
    } catch (const Failure& failure) {
      if (failed_.insert(group.id + "/" + kind).second) Fail(item, failure);
    }
  }

  void StartWaiting() {
    std::deque<Item> left;
    for (const Item& item : waiting_) {
      const auto ofKind = static_cast<std::size_t>(
          std::count_if(running_.begin(), running_.end(),
                        [&](const Child& each) { return each.item.kind == item.kind; }));
      if (ofKind >= kMostOfAKind) {
        left.push_back(item);
      } else {
        Start(item);
      }
    }
    waiting_ = std::move(left);
  }

  void Start(const Item& item) {
    try {
      Child child{item, GroupDirectory(item.group), {}};
      ProgramSpec spec;
      spec.argv = {"/proc/self/exe", "schedule", "run", "--kind", item.kind, "--", item.group};
      spec.is_silent = true;  // the marks tell
      const int error = child.program.Start(spec);
      if (error == 0) {
        running_.push_back(std::move(child));
      } else {
        Fail(item, Failure(ExitCode::kFailed, "cannot run the tool itself: " +
                                                  std::generic_category().message(error)));
      }
    } catch (const Failure& failure) {
      Fail(item, failure);
    }
  }

  // Waits for the end of one of them for a moment.
  void ReapOne() {
    for (auto each = running_.begin(); each != running_.end(); ++each) {
      const std::optional<int> code = each->program.Wait(0ms);
      if (!code) continue;
      std::string result = *code == 0 ? "done" : "failed";
      std::string message;
      try {
        const auto mark = ReadMark(each->directory, each->item.kind);
        if (mark && !mark->result.empty()) result = mark->result;
        if (mark) message = mark->message;
      } catch (const Failure&) {  // the exit code has told it
      }
      Note(each->item, result == "running" ? "interrupted" : result, message, *code);
      running_.erase(each);
      return;
    }
    if (!running_.empty()) std::this_thread::sleep_for(50ms);
  }

  std::vector<std::string> groups_;  // all when empty
  std::deque<Item> waiting_;
  std::list<Child> running_;
  std::set<std::string> failed_;  // what is told once
  Json::Value rows_{Json::arrayValue};
  int worst_ = 0;
};

Report RunScheduleRun(const Arguments& args, Warnings& warnings) {
  std::vector<std::string> groups;
  if (args.Has("GROUP")) groups.push_back(LoadGroup(args.Text("GROUP")).id);
  if (!args.Has("--kind")) return Runner(groups).Run();
  if (groups.empty()) {
    throw Failure(ExitCode::kUsage, "--kind is for one group: name the GROUP");
  }
  return RunOne({groups.front(), args.Text("--kind")}, warnings);
}

}  // namespace

Verb ScheduleRun() {
  return {
      "schedule run",
      "do with groups what is due by the calendar",
      {"What is due is what the calendar asked for since the last time; what was missed, as while "
       "the host was down, is made up once. Each is run in a process of its own, up to four of a "
       "kind at a time, and while one runs what becomes due meanwhile is run beside it. What still "
       "runs is not started again. Snapshots and syncs are passed over where the group's copies do "
       "not work, and syncs while the group is failed over. What another process is in the way of "
       "for more than a minute stays due.",
       "A group that fails keeps no other from its turn. The exit code is the largest that one of "
       "them ended with. When the clock was put back nothing is run twice for the same time; a "
       "last run that lies ahead of the clock by more than one interval is taken for a wrong "
       "clock's, and the schedule goes on from now."},
      "What the snapshots, syncs and prunings that are due change.",
      {AnyGroup()},
      {{"--kind", Value::kChoice, "KIND", "only that, and in this process", false, false,
        ScheduledKinds()}},
      RunScheduleRun};
}

}  // namespace drgroupctl
