#include "held_shipments.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tree.h"

namespace e2e {

namespace fs = std::filesystem;

namespace {

std::string Script(const std::string& dir) {
  return "#!/bin/sh\n"
         "for last; do :; done\n"
         "target=${last#*/incoming/}; target=${target%%/*}\n"
         "echo \"begin $target\" >>" +
         dir +
         "/notes\n"
         "[ -p " +
         dir + "/hold/$target ] && read -r line <" + dir +
         "/hold/$target\n"
         "PATH=/usr/bin:/bin rsync \"$@\" || exit $?\n"
         "echo \"end $target\" >>" +
         dir + "/notes\n";
}

}  // namespace

HeldShipments::HeldShipments(const std::string& dir)
    : dir_(dir), path_before_(std::getenv("PATH")) {
  fs::create_directories(dir + "/hold");
  fs::create_directory(dir + "/bin");
  host_test::WriteFile(dir + "/bin/rsync", Script(dir));
  chmod((dir + "/bin/rsync").c_str(), 0755);
  setenv("PATH", (dir + "/bin:" + path_before_).c_str(), 1);
}

HeldShipments::~HeldShipments() {
  setenv("PATH", path_before_.c_str(), 1);
  for (const int each : pipes_) close(each);
}

void HeldShipments::Hold(const std::string& replica) {
  EXPECT_EQ(mkfifo(PipeOf(replica).c_str(), 0600), 0);
  pipes_.push_back(open(PipeOf(replica).c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_GE(pipes_.back(), 0);
}

void HeldShipments::LetGo(const std::string& replica) {
  std::ofstream(PipeOf(replica)) << "go\n";
}

std::vector<std::string> HeldShipments::Notes() const {
  std::ifstream file(dir_ + "/notes");
  std::vector<std::string> notes;
  for (std::string line; std::getline(file, line);) notes.push_back(line);
  return notes;
}

void HeldShipments::Await(const std::string& note) const {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (;;) {
    const std::vector<std::string> notes = Notes();
    if (std::find(notes.begin(), notes.end(), note) != notes.end()) return;
    if (std::chrono::steady_clock::now() > end) {
      ADD_FAILURE() << "waited too long for " << note << ": " << testing::PrintToString(notes);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace e2e
