#pragma once

#include <array>

namespace VrelDR {

// How the host's records came to be, version by version: the statements at index i make version
// i + 1 out of version i, and a new version is a new entry. What has been released never changes.
inline constexpr std::array kStoreSchema{
    R"(
CREATE TABLE targets (
  id TEXT NOT NULL PRIMARY KEY,
  type INTEGER NOT NULL,
  volume TEXT NOT NULL,
  state INTEGER NOT NULL,
  last_snap_time INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE snapshots (
  seq INTEGER PRIMARY KEY AUTOINCREMENT,
  target_id TEXT NOT NULL,
  snap_id TEXT NOT NULL,
  create_time INTEGER NOT NULL DEFAULT 0,
  state INTEGER NOT NULL,
  description TEXT NOT NULL DEFAULT '',
  is_locked INTEGER NOT NULL DEFAULT 0,
  is_app_consistent INTEGER NOT NULL DEFAULT 0,
  taken_by TEXT NOT NULL DEFAULT '',
  UNIQUE (target_id, snap_id)
);
)",
};

}  // namespace VrelDR
