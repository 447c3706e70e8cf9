#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/plan.h"
#include "vreldr/snapshot.h"

namespace VrelDR {

// What a plan tells about itself. Kept on disk: never change a value.
enum DRReportType : int {
  kReportPendingSnaps = 1,
  kReportRetentionLock = 2,
  kReportSync = 3,
  kReportJournal = 4,
};

// How the last, or the running, operation of a plan goes.
enum class OPState : int {
  kRunning = 1,
  kDone = 2,
  kFailed = 3,
  kInterrupted = 4,  // ended before its end, as by a stop or in a crash
};

// "running", "done", "failed" or "interrupted"; empty for any other number.
VREL_API std::string ToString(OPState state);

// One report; it begins empty. A report is read by the reporter of its kind.
class VREL_API Report {
 public:
  virtual ~Report() = default;
  // Takes over the members that are present and of the right kind.
  virtual void FromJson(const Json::Value& json) = 0;
};

// Reads what a plan tells of one kind.
class VREL_API Reporter : public DRErrRecorder {
 public:
  ~Reporter() override = default;

  // Reads the report. False, and `report` stays as it was, when the plan does not exist, has told
  // nothing of this kind yet, or cannot be asked.
  bool ReadReport(Report& report) const;

 protected:
  Reporter(const std::string& planId, DRReportType type) : plan_id_(planId), type_(type) {}

  std::string plan_id_;
  DRReportType type_;
};

// The counts of one sync.
class VREL_API SyncRecord {
 public:
  std::uint64_t sync_size_byte = 0;   // of those to be looked at, how many are done
  std::uint64_t total_size_byte = 0;  // to be looked at; may grow while the sync runs
  std::uint64_t sent_size_byte = 0;   // really sent: what the replica had not
  std::uint32_t begin_time = 0;       // seconds since the epoch
  std::uint32_t end_time = 0;         // 0 while it runs

  // The members by their names.
  Json::Value ToResponse() const;
};

// The running sync of a plan, or its last one.
class VREL_API SyncReport : public Report {
 public:
  void FromJson(const Json::Value& json) override;

  const SyncRecord& GetSyncRecord() const { return record_; }
  // The snapshot that was sent, or is being sent.
  const std::string& GetSnapId() const { return snap_id_; }
  OPState GetState() const { return state_; }

  // {"state": "running" | "done" | "failed" | "interrupted", "snap_id": text,
  //  "record": the record's response}
  Json::Value ToResponse() const;

 private:
  SyncRecord record_;
  std::string snap_id_;
  OPState state_ = OPState::kDone;
};

// The snapshots that a plan holds by retention locks.
class VREL_API RetentionLockReport : public Report {
 public:
  void FromJson(const Json::Value& json) override;

  // Oldest first.
  const std::vector<std::string>& GetSnapshots() const { return snapshots_; }
  // The last snapshot that replication has brought over; empty when there is none.
  std::string GetLastSnapshot() const;

 private:
  std::vector<std::string> snapshots_;
};

// The running operation of a plan, or its last one.
class VREL_API SiteOPJournal : public Report {
 public:
  void FromJson(const Json::Value& json) override;

  DRPlanOPStatus GetOPStatus() const { return op_status_; }
  OPState GetState() const { return state_; }
  int GetProgress() const { return progress_; }  // in percent
  std::uint32_t GetBeginTime() const { return begin_time_; }
  // Why it failed, and what else there is to tell of it; empty otherwise.
  const std::string& GetMessage() const { return message_; }

 private:
  DRPlanOPStatus op_status_ = kOpNone;
  OPState state_ = OPState::kDone;
  int progress_ = 0;
  std::uint32_t begin_time_ = 0;
  std::string message_;
};

// The snapshots that are still to be sent, by their identifiers, oldest first.
class VREL_API PendingSnapReport : public Report {
 public:
  void FromJson(const Json::Value& json) override;

  const std::vector<std::string>& GetSnapshots() const { return snapshots_; }

 private:
  std::vector<std::string> snapshots_;
};

// Any kind of report.
class VREL_API PlanReporter : public Reporter {
 public:
  PlanReporter(const std::string& planId, DRReportType type) : Reporter(planId, type) {}
};

class VREL_API PlanSyncReporter : public Reporter {
 public:
  explicit PlanSyncReporter(const std::string& planId) : Reporter(planId, kReportSync) {}
};

class VREL_API RetentionLockReporter : public Reporter {
 public:
  explicit RetentionLockReporter(const std::string& planId)
      : Reporter(planId, kReportRetentionLock) {}
};

class VREL_API SiteOPJournalReporter : public Reporter {
 public:
  explicit SiteOPJournalReporter(const std::string& planId) : Reporter(planId, kReportJournal) {}
};

class VREL_API PendingSnapReporter : public Reporter {
 public:
  explicit PendingSnapReporter(const std::string& planId) : Reporter(planId, kReportPendingSnaps) {}

  // Puts a snapshot of the source on the list of those that the next sync sends; once more is fine.
  // False when it has no identifier, when there is no such plan or on a failure.
  bool Add(const Operation::Snapshot& snapshot) const;
  // Takes it off the list; one that is not on it is fine.
  bool Remove(const Operation::Snapshot& snapshot) const;
};

}  // namespace VrelDR
