#pragma once

#include <string>

// Where a group's catalogue and the program that lays it out are. All of it is fixed.
namespace VrelDRGroup {

inline constexpr char kDbName[] = "drgroup.db";
inline constexpr char kDrGroupRoot[] = "/var/packages/Guestora/etc/drgroup";
inline constexpr char kDbScript[] = "/var/packages/Guestora/target/sbin//vreldrgroup_db.sh";
inline constexpr char kRepairAction[] = "repair_db";

// The database file in `dir`; empty for an empty directory.
std::string GetDBPathByDir(const std::string& dir);

// The link directory of a group; the identifier is taken as it is.
std::string GetDBDirByGroupId(const std::string& groupId);

}  // namespace VrelDRGroup
