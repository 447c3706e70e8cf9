#include "foundation/records.h"

#include <gtest/gtest.h>
#include <vreldr/error.h>

#include "host_fixture.h"
#include "tree.h"

// How failures of the host's records are told apart.

namespace host_test {
namespace {

using VrelDRCore::SqliteDB;

class RecordsTest : public HostTest {};

INSTANTIATE_TEST_SUITE_P(Volumes, RecordsTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(RecordsTest, ThoseThatAnotherProcessHoldsAreBusyAndNotDamaged) {
  const std::string path = Root() + "/held.db";
  WriteFile(path, "");
  const SqliteDB holder(path, 0, "info");
  ASSERT_TRUE(holder.Exec("CREATE TABLE one (a)"));
  ASSERT_TRUE(holder.Exec("BEGIN EXCLUSIVE"));
  const SqliteDB other(path, 0, "info");
  ASSERT_FALSE(other.Exec("INSERT INTO one VALUES (1)"));
  EXPECT_EQ(VrelHost::RecordsFailure(other).code, VrelDR::kErrBusy);
  EXPECT_NE(VrelHost::RecordsFailure(other).message.find("run it again"), std::string::npos);
  ASSERT_TRUE(holder.Exec("COMMIT"));
  ASSERT_FALSE(other.Exec("INSERT INTO two VALUES (1)"));
  EXPECT_EQ(VrelHost::RecordsFailure(other).code, VrelDR::kErrStore);
}

}  // namespace
}  // namespace host_test
