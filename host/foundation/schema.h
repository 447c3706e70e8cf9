#pragma once

#include <array>

namespace VrelHost {

// How the host's records came to be, version by version: the statements at index i make version
// i + 1 out of version i, and a new version is a new entry. What has been released never changes.
inline constexpr std::array kRecordsSchema{
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
    R"(
CREATE TABLE plans (
  seq INTEGER PRIMARY KEY AUTOINCREMENT,
  id TEXT NOT NULL UNIQUE,
  state INTEGER NOT NULL,
  solution_type INTEGER NOT NULL,
  target_type INTEGER NOT NULL,
  protected_target_id TEXT NOT NULL,
  dr_target_id TEXT NOT NULL,
  schedule_mode INTEGER NOT NULL,
  main_site TEXT NOT NULL,
  dr_site TEXT NOT NULL,
  status INTEGER NOT NULL,
  direction INTEGER NOT NULL,
  is_reprotected INTEGER NOT NULL DEFAULT 0,
  hand_snap_id TEXT NOT NULL DEFAULT ''
);
CREATE INDEX plans_by_target ON plans (protected_target_id);
CREATE INDEX plans_by_copy ON plans (dr_target_id);
CREATE TABLE retention_locks (
  seq INTEGER PRIMARY KEY AUTOINCREMENT,
  target_id TEXT NOT NULL,
  snap_id TEXT NOT NULL,
  locker TEXT NOT NULL,
  UNIQUE (target_id, snap_id, locker)
);
CREATE INDEX retention_locks_by_locker ON retention_locks (locker);
CREATE TABLE pending_snaps (
  seq INTEGER PRIMARY KEY AUTOINCREMENT,
  plan_id TEXT NOT NULL,
  snap_id TEXT NOT NULL,
  UNIQUE (plan_id, snap_id)
);
CREATE TABLE sync_reports (
  plan_id TEXT NOT NULL PRIMARY KEY,
  state INTEGER NOT NULL,
  snap_id TEXT NOT NULL,
  done_bytes INTEGER NOT NULL,
  total_bytes INTEGER NOT NULL,
  sent_bytes INTEGER NOT NULL,
  begin_time INTEGER NOT NULL,
  end_time INTEGER NOT NULL
);
CREATE TABLE journals (
  plan_id TEXT NOT NULL PRIMARY KEY,
  op INTEGER NOT NULL,
  state INTEGER NOT NULL,
  progress INTEGER NOT NULL,
  begin_time INTEGER NOT NULL,
  message TEXT NOT NULL,
  snap_id TEXT NOT NULL,
  pid INTEGER NOT NULL,
  is_stop_asked INTEGER NOT NULL
);
)",
    // The volumes' identities; who took a snapshot; how often what is in hand found no room.
    R"(
CREATE TABLE volumes (
  name TEXT NOT NULL PRIMARY KEY,
  id TEXT NOT NULL,
  file_system TEXT NOT NULL
);
ALTER TABLE snapshots ADD COLUMN maker TEXT NOT NULL DEFAULT '';
ALTER TABLE plans ADD COLUMN hand_failures INTEGER NOT NULL DEFAULT 0;
)",
    // Where a target is, as the engine of its volume says it: until now by its identifier.
    R"(
ALTER TABLE targets ADD COLUMN locator TEXT NOT NULL DEFAULT '';
UPDATE targets SET locator = id;
)",
    // Which snapshots are of one cut, and how that went.
    R"(
CREATE TABLE cuts (
  id TEXT NOT NULL PRIMARY KEY,
  members INTEGER NOT NULL,
  grade INTEGER NOT NULL,
  is_app_consistent INTEGER NOT NULL,
  method TEXT NOT NULL,
  skew_ms INTEGER NOT NULL,
  held_ms INTEGER NOT NULL
);
ALTER TABLE snapshots ADD COLUMN cut_id TEXT NOT NULL DEFAULT '';
CREATE INDEX snapshots_by_cut ON snapshots (cut_id);
)",
    // Whether a sync has made the group snapshots of a cut.
    R"(
ALTER TABLE cuts ADD COLUMN is_made_by_sync INTEGER NOT NULL DEFAULT 0;
)",
    // A target's snapshots stand together, in their order, and are found by name; what is asked of
    // a target is answered without a look at all of them. Sequence numbers are counted apart: none
    // is given twice, whatever was removed. The views keep to their indexes whatever a planner
    // thinks.
    R"(
CREATE TABLE snapshots_by_target (
  target_id TEXT NOT NULL,
  seq INTEGER NOT NULL,
  snap_id TEXT NOT NULL,
  create_time INTEGER NOT NULL DEFAULT 0,
  state INTEGER NOT NULL,
  description TEXT NOT NULL DEFAULT '',
  is_locked INTEGER NOT NULL DEFAULT 0,
  is_app_consistent INTEGER NOT NULL DEFAULT 0,
  taken_by TEXT NOT NULL DEFAULT '',
  maker TEXT NOT NULL DEFAULT '',
  cut_id TEXT NOT NULL DEFAULT '',
  PRIMARY KEY (target_id, seq)
) WITHOUT ROWID;
INSERT INTO snapshots_by_target
  SELECT target_id, seq, snap_id, create_time, state, description, is_locked, is_app_consistent,
         taken_by, maker, cut_id
  FROM snapshots ORDER BY target_id, seq;
CREATE TABLE snapshot_sequence (last INTEGER NOT NULL);
INSERT INTO snapshot_sequence
  SELECT coalesce((SELECT seq FROM sqlite_sequence WHERE name = 'snapshots'), 0);
DROP TABLE snapshots;
ALTER TABLE snapshots_by_target RENAME TO snapshots;
CREATE UNIQUE INDEX snapshots_by_name ON snapshots (target_id, snap_id);
CREATE INDEX snapshots_unfinished ON snapshots (target_id, seq) WHERE state <> 2;
CREATE INDEX snapshots_by_cut ON snapshots (cut_id) WHERE cut_id <> '';
CREATE VIEW unfinished_snapshots AS
  SELECT * FROM snapshots INDEXED BY snapshots_unfinished WHERE state <> 2;
CREATE VIEW cut_snapshots AS
  SELECT * FROM snapshots INDEXED BY snapshots_by_cut WHERE cut_id <> '';
CREATE VIEW snapshot_counts AS
  SELECT id AS target_id,
         (SELECT count(*) FROM snapshots INDEXED BY snapshots_by_name WHERE target_id = id) -
         (SELECT count(*) FROM unfinished_snapshots WHERE target_id = id) AS whole
  FROM targets;
)",
    // The file has a write-ahead log where its file system can give it one; see
    // records_upgrade.cpp.
    "",
};

}  // namespace VrelHost
