#include <gmock/gmock.h>
#include <vreldrgroup/vreldrgroup.h>

#include <cstring>

namespace unit {
namespace {

using VrelDRCore::ErrRecorder;
using namespace VrelDRGroup;

// Programs that were built against an earlier release call virtual operations by their place in the
// table: the order is part of the interface.

// The place of a virtual operation. By the C++ ABI of Linux a pointer to one holds its offset in
// the table, on some machines plus 1; a destructor takes two places.
template <class Function>
std::size_t Slot(Function function) {
  std::size_t offset = 0;
  static_assert(sizeof(function) >= sizeof(offset));
  std::memcpy(&offset, &function, sizeof(offset));
  return (offset & ~std::size_t{1}) / sizeof(void*);
}

// What stands at a place of an object's table.
template <class Object>
const void* Entry(const Object& object, std::size_t slot) {
  const void* const* table = nullptr;
  std::memcpy(&table, &object, sizeof(table));
  return table[slot];
}

template <class Record>
void ExpectRecordSlots(std::size_t firstAfterDestructor) {
  EXPECT_EQ(Slot(&Record::ToSqliteValues), 0U);
  EXPECT_EQ(Slot(&Record::FromSqliteValues), 1U);
  EXPECT_EQ(Slot(&Record::ListSqliteField), 2U);
  EXPECT_EQ(Slot(&Record::FromJson), firstAfterDestructor);
  EXPECT_EQ(Slot(&Record::ToJson), firstAfterDestructor + 1);
}

TEST(SlotOrder, OfTargetRecords) {
  ExpectRecordSlots<TargetSnapshot>(6);
  ExpectRecordSlots<TargetSnapshotRelationship>(6);
  ExpectRecordSlots<TargetReplica>(6);
  ExpectRecordSlots<TargetReplicaRelationship>(6);
  EXPECT_EQ(Slot(&TargetSnapshot::IsValid), 5U);
  EXPECT_EQ(Slot(&TargetSnapshotRelationship::IsValid), 5U);
  EXPECT_EQ(Slot(&TargetReplica::IsValid), 5U);
  EXPECT_EQ(Slot(&TargetReplicaRelationship::IsValid), 5U);
}

TEST(SlotOrder, OfGroupSnapshotRecords) {
  ExpectRecordSlots<GsnapMeta>(5);
  ExpectRecordSlots<Gsnapshot>(5);
  ExpectRecordSlots<GsnapshotInfo>(5);
}

TEST(SlotOrder, OfTargetGroups) {
  EXPECT_EQ(Slot(&TargetGroup::GetId), 2U);
  EXPECT_EQ(Slot(&TargetGroup::GetName), 3U);
  EXPECT_EQ(Slot(&TargetGroup::ListTargets), 4U);
}

TEST(SlotOrder, OfErrorRecorders) {
  EXPECT_EQ(Slot(&ErrRecorder::GetErr), 0U);
  EXPECT_EQ(Slot(&ErrRecorder::GetErrCodeStr), 1U);
}

TEST(SlotOrder, OfOperations) {
  EXPECT_EQ(Slot(&Operation::GsnapshotCreate::Run), 4U);
  EXPECT_EQ(Slot(&Operation::GsnapshotSync::Run), 4U);
  EXPECT_EQ(Slot(&Operation::GsnapshotDelete::Run), 4U);
  EXPECT_EQ(Slot(&Operation::GsnapshotRestore::Run), 4U);
  EXPECT_EQ(Slot(&Operation::GsnapshotClone::Run), 4U);
}

TEST(SlotOrder, HasNoPlaceForTheRunOfARepair) {
  // A pointer to an operation that is not virtual holds its address, far from any place.
  EXPECT_GT(Slot(&Operation::GsnapshotRepair::Run), 1000U);
}

TEST(SlotOrder, HasEveryOperationOfARelationshipOverridden) {
  const TargetSnapshot snap(VrelDR::Target(), "");
  const TargetSnapshotRelationship snapRelated;
  const TargetReplica replica("", "");
  const TargetReplicaRelationship replicaRelated;
  for (std::size_t slot = 0; slot < 8; ++slot) {
    EXPECT_NE(Entry(snap, slot), Entry(snapRelated, slot)) << slot;
    EXPECT_NE(Entry(replica, slot), Entry(replicaRelated, slot)) << slot;
  }
}

TEST(SlotOrder, KeepsTheRowMappingOfAGroupSnapshotInItsInfo) {
  const Gsnapshot gsnap("");
  const GsnapshotInfo info("");
  for (std::size_t slot = 0; slot < 3; ++slot) {
    EXPECT_EQ(Entry(gsnap, slot), Entry(info, slot)) << slot;
  }
  for (std::size_t slot = 3; slot < 7; ++slot) {
    EXPECT_NE(Entry(gsnap, slot), Entry(info, slot)) << slot;
  }
}

TEST(SlotOrder, GivesASynchronisationTheMembersOfACreation) {
  EXPECT_EQ(sizeof(Operation::GsnapshotSync), sizeof(Operation::GsnapshotCreate));
}

TEST(SlotOrder, HasTheOperationsOfHostErrorRecordersFirst) {
  EXPECT_EQ(Slot(&VrelDR::DROperation::GetErr), 0U);
  EXPECT_EQ(Slot(&VrelDR::DROperation::GetErrCodeStr), 1U);
  EXPECT_EQ(Slot(&VrelDR::DROperation::Run), 4U);
}

TEST(SlotOrder, AddsNoMembersToDatabases) {
  EXPECT_EQ(sizeof(DRGroupDB), sizeof(VrelDRCore::SqliteDB));
  EXPECT_EQ(sizeof(DRTransactDB), sizeof(VrelDRCore::SqliteDB));
}

}  // namespace
}  // namespace unit
