// The identities of the volumes.
#include "store/rows.h"
#include "store/store.h"

namespace VrelDR {

using namespace Rows;  // short forms of commands on rows

namespace {

constexpr const char* kVolumes = "volumes";

VolumeRow ReadVolume(const SqliteValueList& values) {
  return {GetText(values, "name"), GetText(values, "id"), GetText(values, "file_system")};
}

}  // namespace

Status Store::ListVolumes(std::vector<VolumeRow>& rows) const {
  return db_.Result(SelectInto(db_, Select(kVolumes, {}, "name"), ReadVolume, rows));
}

Status Store::SetVolume(const VolumeRow& row) const {
  SqliteValueList values;
  values.AddValue("name", row.name);
  values.AddValue("id", row.id);
  values.AddValue("file_system", row.file_system);
  return db_.Transact([&] {
    return Delete(db_, kVolumes, SqliteEqual("name", row.name)) && Insert(db_, kVolumes, values);
  });
}

}  // namespace VrelDR
