#pragma once

// The codes that this library itself records; all others are the replication library's, copied.
// Callers compare them: never change a value.
namespace VrelDRGroup {

inline constexpr int kErrNone = 0;
inline constexpr int kErrBadArgument = 401;        // an empty or invalid argument
inline constexpr int kErrDatabase = 404;           // the database refused a write or a delete
inline constexpr int kErrNotCompleted = 407;       // the run has not come to its end
inline constexpr int kErrBadTargetSnapshot = 621;  // a target snapshot that cannot be restored
inline constexpr int kErrGsnapUnusable = 622;      // a group snapshot, or a part of one, is missing
inline constexpr int kErrTargetMissing = 634;      // the target does not exist

}  // namespace VrelDRGroup
