#include "action/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <vreldr/report.h>
#include <vreldrgroup/replication/replica_op.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>

#include "action/crew.h"
#include "output/console.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr auto kPause = std::chrono::milliseconds(200);
constexpr std::uint64_t kLinePause = 2000;  // in milliseconds

// A handler of signals can reach nothing but what is global.
std::atomic<bool> stopAsked{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void AskStop(int) {
  stopAsked = true;
}

void Handle(void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  // The second signal does what it always does.
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

std::uint64_t Now() {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::steady_clock::now().time_since_epoch())
                                        .count());
}

std::size_t TerminalWidth() {
  constexpr std::size_t kWidth = 80;
  struct winsize size = {};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kWidth - 1;
  return std::min<std::size_t>(kWidth, size.ws_col) - 1;
}

// What the plan tells of the operation that runs on it; nothing of one that ended earlier.
Reading Read(const std::string& task, bool isSync, const std::string& target,
             const std::string& planId) {
  Reading reading;
  VrelDR::SiteOPJournal journal;
  if (!VrelDR::SiteOPJournalReporter(planId).ReadReport(journal) ||
      journal.GetState() != VrelDR::OPState::kRunning) {
    return reading;
  }
  VrelDR::SyncReport report;
  if (isSync && VrelDR::PlanSyncReporter(planId).ReadReport(report)) {
    reading.done = report.GetSyncRecord().sync_size_byte;
    reading.total = report.GetSyncRecord().total_size_byte;
  }
  std::string firstPlan;
  if (VrelDRGroup::Operation::ReplicaPlanIdGet(target, firstPlan) == 0 && firstPlan == planId) {
    VrelDRGroup::Operation::ReplicaProgressAppr({target}, task, reading.percent);
  } else {  // of several plans that function asks the first
    reading.percent = journal.GetProgress();
  }
  return reading;
}

std::string BytesText(const Reading& reading) {
  if (reading.total == 0) return {};
  return FormatBytes(reading.done) + " of " + FormatBytes(reading.total);
}

}  // namespace

std::string ProgressBar(const std::string& title, int percent, const std::string& details,
                        std::size_t width) {
  constexpr std::size_t kBar = 20;
  const auto filled = static_cast<std::size_t>(std::clamp(percent, 0, 100)) * kBar / 100;
  const std::string number = std::to_string(percent);
  const std::string bar = " [" + std::string(filled, '#') + std::string(kBar - filled, ' ') + "] " +
                          std::string(number.size() < 3 ? 3 - number.size() : 0, ' ') + number +
                          " %  ";
  const std::size_t room = width > bar.size() ? width - bar.size() : 0;
  const std::string head = CutToWidth(title, std::min<std::size_t>(room / 2, 24));
  return CutToWidth(head + bar + CutToWidth(details, room - DisplayWidth(head)), width);
}

Progress::Progress(const Prepared& prepared, const Arguments& args)
    : task_(prepared.name),
      group_(prepared.group),
      prepared_(prepared),
      is_sync_(prepared.is_sync) {
  if (!args.Has("--json")) mode_ = isatty(STDERR_FILENO) != 0 ? Mode::kBar : Mode::kLines;
  last_line_ = Now();
  if (is_sync_) {
    stopAsked = false;
    Handle(AskStop);
  }
  thread_ = std::thread([this] { Watch(); });
}

Progress::~Progress() {
  {
    const std::lock_guard lock(mutex_);
    is_over_ = true;
  }
  changed_.notify_all();
  thread_.join();
  if (is_sync_) Handle(SIG_DFL);
  if (mode_ == Mode::kBar) PrintOnTerminal("\r\x1b[K");
}

std::optional<Failure> Progress::FindStop() const {
  if (!is_sync_ || !stopAsked) return std::nullopt;
  return Failure(ExitCode::kStopped,
                 "stopped because somebody asked for it; the same command goes on");
}

void Progress::Begin(const std::string& target) {
  const std::lock_guard lock(mutex_);
  running_.push_back({target, {}, ++begun_});
}

void Progress::End(const std::string& target) {
  const std::lock_guard lock(mutex_);
  std::erase_if(running_, [&](const Running& each) { return each.target == target; });
}

// Looked up only for an operation that takes long enough to be watched.
std::string Progress::PlanOf(const std::string& target) const {
  const auto found = prepared_.plans.find(target);
  if (found != prepared_.plans.end()) return found->second;
  std::string plan;
  VrelDRGroup::Operation::ReplicaPlanIdGet(target, plan);
  return plan;
}

void Progress::Watch() {
  std::unique_lock lock(mutex_);
  while (!changed_.wait_for(lock, kPause, [this] { return is_over_; })) {
    if (running_.empty()) continue;
    std::vector<Running> running = running_;
    const std::size_t ended = begun_ - running.size();
    lock.unlock();
    for (Running& each : running) each.plan = PlanOf(each.target);
    // Asked again each time, as an operation may not have come so far yet that it can be stopped.
    if (is_sync_ && stopAsked) Stop(running);
    if (mode_ != Mode::kNone) Show(running, ended);
    lock.lock();
  }
}

// All at once, as each is waited for.
void Progress::Stop(const std::vector<Running>& running) {
  Crew crew(running.size());
  for (const Running& each : running) {
    crew.Start(each.number, [&each] { VrelDR::Operation::PlanStop(each.plan).Run(false); });
  }
}

void Progress::Show(const std::vector<Running>& running, std::size_t ended) {
  const std::uint64_t now = Now();
  if (mode_ == Mode::kLines && now - last_line_ < kLinePause) return;
  last_line_ = now;
  std::vector<Reading> readings;
  Reading sum;
  std::size_t percents = ended * 100;
  for (const Running& each : running) {
    const Reading& reading = readings.emplace_back(Read(task_, is_sync_, each.target, each.plan));
    percents += static_cast<std::size_t>(reading.percent);
    sum.done += reading.done;
    sum.total += reading.total;
  }
  const std::size_t count = std::max<std::size_t>(prepared_.targets.size(), 1);
  percent_ = std::max(percent_, static_cast<int>(percents / count));
  const auto place = [count](std::size_t number) {
    return std::to_string(number) + "/" + std::to_string(count);
  };
  if (mode_ == Mode::kBar) {
    const std::string bytes = BytesText(sum);
    const std::string what = running.size() == 1
                                 ? running.front().target
                                 : "(" + std::to_string(running.size()) + " at a time)";
    const std::string details =
        place(running.back().number) + " " + (bytes.empty() ? "" : bytes + " ") + what;
    PrintOnTerminal("\r" +
                    ProgressBar(task_ + " " + Printable(group_), percent_, Printable(details),
                                TerminalWidth()) +
                    "\x1b[K");
    return;
  }
  for (std::size_t i = 0; i < running.size(); ++i) {
    const std::string bytes = BytesText(readings[i]);
    PrintNote(prepared_.title + ": " + std::to_string(percent_) + " %, target " +
              Quote(running[i].target) + " (" + place(running[i].number) + ")" +
              (bytes.empty() ? "" : ", " + bytes));
  }
}

}  // namespace drgroupctl
