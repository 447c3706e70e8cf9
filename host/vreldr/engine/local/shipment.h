#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "engine/local/change_mark.h"
#include "engine/local/write_back.h"
#include "engine/support/watch.h"

namespace VrelDR::Local {

// One shipment on its way, as those see it who move the bytes.
class Shipment {
 public:
  // `writeBack` is of the replica's volume, and stays longer than this object.
  Shipment(Watcher& watcher, const std::string& replicaId, const WriteBack& writeBack)
      : watch_(watcher), replica_id_(replicaId), write_back_(writeBack) {}

  // To be called all the time while bytes move; see Watch::Tell. A failure also once it is known
  // that some of what was written is lost.
  Status Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent, std::uint64_t activity);
  // The same at the end, when all has arrived.
  Status TellAll(std::uint64_t total, std::uint64_t sent);

  Watch& GetWatch() { return watch_; }
  const std::string& GetReplicaId() const { return replica_id_; }

 private:
  Status BeginData();

  Watch watch_;
  std::string replica_id_;
  const WriteBack& write_back_;
  bool has_data_ = false;
  std::uint64_t done_ = 0;  // the most that was told: what is begun anew is not told as less
};

// Brings a file system to disk every second for as long as the object lives: what has arrived is
// safe, and the last sync, which nobody can stop, is short.
class Flusher {
 public:
  // What it finds stays known to `writeBack`, and how far what is on disk goes to `mark`, which may
  // be null; both live longer than this object.
  explicit Flusher(WriteBack& writeBack, ChangeMark* mark = nullptr)
      : thread_([this, &writeBack, mark] { Run(writeBack, mark); }) {}
  ~Flusher();
  Flusher(const Flusher&) = delete;
  Flusher& operator=(const Flusher&) = delete;

 private:
  void Run(WriteBack& writeBack, ChangeMark* mark);

  std::mutex mutex_;
  std::condition_variable ending_;
  bool ends_ = false;
  std::thread thread_;
};

}  // namespace VrelDR::Local
