#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "file_systems_fixture.h"

namespace e2e {

// The volumes "v1" and "v2" are plain directories or file systems of the test's parameter. The
// group "g" of ToolTest::MakeGroup is on "v1"; its DR copies, on "v2", are the group "gd".
class PlanTest : public FileSystemsTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Makes the group, protects it and sends it over once.
  void MakeProtected();

  // What the targets of "g" hold, and what their DR copies hold, by the targets of "g".
  static TargetContents MainContents();
  static TargetContents CopyContents();
  // What the last snapshots hold that arrived at the DR copies.
  static TargetContents LastArrivedContents();
  // Takes a volume away, as when a disk goes or is not mounted, and brings it back.
  void LoseVolume(const std::string& volume) const;
  void BringVolumeBack(const std::string& volume) const;
  // Changes the targets of "g", or their DR copies, differently with every call.
  void ChangeMain();
  void ChangeCopies();

  // How each target of "g" stands, in its order: "protected lun", with the copy that works.
  static std::vector<std::string> States();
  static std::vector<std::string> AllProtected();   // the main copies work
  static std::vector<std::string> AllTurned();      // the DR copies do, and are replicated
  static std::vector<std::string> AllFailedOver();  // the DR copies do
  static std::vector<std::string> AllUnprotected();

  // Runs the tool and lets it be ended at a kill point. Whether the point was reached.
  static bool RunKilledAt(const std::string& step, const std::vector<std::string>& words);
  // Runs the tool with a failure of the engine, such as "promote@lun-dr".
  static Result RunFailingAt(const std::string& point, const std::vector<std::string>& words);

  // Expects that every snapshot that both copies of a target have holds the same bytes.
  static void ExpectSameSnapshots();

 private:
  std::unique_ptr<host_test::MountedImage> image_;
  int changes_ = 0;
};

}  // namespace e2e
