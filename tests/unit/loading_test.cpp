#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

namespace unit {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;

// The files of this name that the program has loaded, whatever their version.
std::set<std::string> Loaded(const std::string& name) {
  std::set<std::string> found;
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line)) {
    const auto slash = line.find('/');
    if (slash == std::string::npos) continue;
    const fs::path path = line.substr(slash);
    if (path.filename().string().rfind(name + ".so", 0) == 0) found.insert(path.string());
  }
  return found;
}

TEST(Loading, TakesTheScriptedHostForTheRealOne) {
  const fs::path dir = SCRIPTED_HOST_DIR;
  EXPECT_THAT(Loaded("libvreldr"), ElementsAre(fs::canonical(dir / "libvreldr.so").string()));
  EXPECT_THAT(Loaded("libvreldrnode"),
              ElementsAre(fs::canonical(dir / "libvreldrnode.so").string()));
}

TEST(Loading, TakesTheLibraryAsItShips) {
  EXPECT_THAT(Loaded("libvreldrgroup"), ElementsAre(fs::canonical(SHIPPED_LIBRARY).string()));
}

}  // namespace
}  // namespace unit
