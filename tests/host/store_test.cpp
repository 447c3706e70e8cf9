#include "store/store.h"

#include <gtest/gtest.h>

#include "foundation/records.h"
#include "host_fixture.h"

// What the records give back of what was written.

namespace host_test {
namespace {

using VrelDR::Store;
using VrelDR::TargetRow;

class StoreTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    ASSERT_TRUE(VrelHost::MakeRecords(Root() + "/replica.db").IsOk());
    Reopen();
  }
  void Reopen() {
    store_.reset();
    ASSERT_TRUE(Store::Open(Root(), store_).IsOk());
  }

  std::optional<Store> store_;
};

INSTANTIATE_TEST_SUITE_P(Volumes, StoreTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(StoreTest, ATargetIsFoundByTheLocatorThatItsEngineGave) {
  TargetRow row;
  row.target = VrelDR::Target("share", VrelDR::kTargetShare);
  row.volume = "v1";
  row.locator = "shelf/7 'b'";
  ASSERT_TRUE(store_->AddTarget(row, nullptr).IsOk());
  Reopen();
  std::optional<TargetRow> found;
  ASSERT_TRUE(store_->GetTarget("share", found).IsOk());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->locator, row.locator);
  EXPECT_EQ(found->volume, row.volume);
  std::vector<TargetRow> rows;
  ASSERT_TRUE(store_->ListTargets(rows).IsOk());
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows.front().locator, row.locator);
}

}  // namespace
}  // namespace host_test
