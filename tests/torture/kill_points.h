#pragma once

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace torture {

// All kill points of the host and of the tool, read from the headers that list them, so that none
// is forgotten. Empty when no header is found.
std::vector<std::string> AllKillPoints();

// Chooses at which point to kill a verb: one that is not known to be out of its reach, rather one
// that was never reached.
class KillChoice {
 public:
  KillChoice() : points_(AllKillPoints()) {}
  std::string For(const std::string& verb, std::mt19937& random) const;
  void Tell(const std::string& verb, const std::string& point, bool isReached);

  const std::set<std::string>& Reached() const { return reached_; }
  std::set<std::string> NeverReached() const;

 private:
  std::vector<std::string> points_;
  std::set<std::string> reached_;
  std::map<std::pair<std::string, std::string>, int> missed_, hit_;
};

}  // namespace torture
