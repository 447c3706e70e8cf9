#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "watch.h"

namespace VrelDR::Local {

// One call of Ship on its way, as those see it who move the bytes.
class Shipment {
 public:
  // `lockFd` is what the processes that write to the replica's volume hold.
  Shipment(Watcher& watcher, const std::string& replicaId, int lockFd)
      : watch_(&watcher), replica_id_(replicaId), lock_fd_(lockFd) {}

  // To be called all the time while bytes move. kErrStopped when it shall end.
  Status Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent);
  // The same at the end, when all has arrived.
  Status TellAll(std::uint64_t total, std::uint64_t sent);

  Watch& GetWatch() { return watch_; }
  int GetLock() const { return lock_fd_; }

 private:
  Status BeginData();

  Watch watch_;
  std::string replica_id_;
  int lock_fd_;
  bool has_data_ = false;
};

// Brings a file system to disk every second for as long as the object lives: what has arrived is
// safe, and the last sync, which nobody can stop, is short.
class Flusher {
 public:
  // `fd` is of the file system, and stays open longer than this object.
  explicit Flusher(int fd) : thread_([this, fd] { Run(fd); }) {}
  ~Flusher();
  Flusher(const Flusher&) = delete;
  Flusher& operator=(const Flusher&) = delete;

 private:
  void Run(int fd);

  std::mutex mutex_;
  std::condition_variable ending_;
  bool ends_ = false;
  std::thread thread_;
};

}  // namespace VrelDR::Local
