#include "behind_writer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

#include "host_fixture.h"
#include "vreldrcore/sqlite_db.h"

namespace host_test {
namespace {

// Lets processes wait for each other.
class Gate {
 public:
  Gate() { EXPECT_EQ(pipe(ends_), 0); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  ~Gate() {
    close(ends_[0]);
    close(ends_[1]);
  }
  // For one who waits.
  void Open() const { EXPECT_EQ(write(ends_[1], "x", 1), 1); }
  void Wait() const {
    char byte = 0;
    EXPECT_EQ(read(ends_[0], &byte, 1), 1);
  }

 private:
  int ends_[2] = {-1, -1};
};

}  // namespace

void RunBehindAWriter(const std::string& path, const std::string& last, int count,
                      const std::function<bool()>& body) {
  const Gate held;
  const Gate begun;
  const Gate released;
  const pid_t holder = StartChild({}, [&] {
    // Patient: its commit, too, waits for those who look at the file in this moment.
    const VrelDRCore::SqliteDB db(path, 20, "info");
    const bool isHeld = db.Exec("BEGIN IMMEDIATE");
    held.Open();
    released.Wait();
    return isHeld && db.Exec(last + "; COMMIT") ? 0 : 1;
  });
  held.Wait();
  std::vector<pid_t> processes{holder};
  for (int i = 0; i < count; ++i) {
    processes.push_back(StartChild({}, [&] {
      begun.Open();
      return body() ? 0 : 1;
    }));
  }
  for (int i = 0; i < count; ++i) begun.Wait();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // for them to get there
  released.Open();
  for (const pid_t each : processes) EXPECT_EQ(WaitFor(each), 0);
}

}  // namespace host_test
