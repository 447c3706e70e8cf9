#pragma once

#include <vreldrgroup/record/gsnapshot.h>

namespace unit {

// A record whose fields all differ from those of a new one, and its JSON.
template <class Record = VrelDRGroup::Gsnapshot>
Record Filled() {
  Record gsnap("g1-gsnap-1700000000");
  gsnap.desc = "words";
  gsnap.is_user_locked = true;
  gsnap.cw_type = VrelDRGroup::kCwApplicationConsistent;
  gsnap.tag = "g1";
  gsnap.gsnap_time = 1700000000;
  gsnap.status = VrelDRGroup::kGsnapReady;
  return gsnap;
}

inline constexpr char kFilledJson[] =
    R"({"cw_type":2,"desc":"words","gsnap_id":"g1-gsnap-1700000000",)"
    R"("gsnap_name":"GMT-2023.11.14-22.13.20","gsnap_time":1700000000,)"
    R"("gsnap_time_str":"1700000000","is_user_locked":true,"status":1,"tag":"g1"})";

}  // namespace unit
