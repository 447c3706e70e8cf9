#pragma once

namespace test_support {

// Makes records of version 6 of those of the newest version, as a step of a transaction.
inline constexpr const char* kBackToVersion6 = R"(
CREATE TABLE earlier (
  seq INTEGER PRIMARY KEY AUTOINCREMENT,
  target_id TEXT NOT NULL,
  snap_id TEXT NOT NULL,
  create_time INTEGER NOT NULL DEFAULT 0,
  state INTEGER NOT NULL,
  description TEXT NOT NULL DEFAULT '',
  is_locked INTEGER NOT NULL DEFAULT 0,
  is_app_consistent INTEGER NOT NULL DEFAULT 0,
  taken_by TEXT NOT NULL DEFAULT '',
  maker TEXT NOT NULL DEFAULT '',
  cut_id TEXT NOT NULL DEFAULT '',
  UNIQUE (target_id, snap_id)
);
INSERT INTO earlier SELECT seq, target_id, snap_id, create_time, state, description, is_locked,
  is_app_consistent, taken_by, maker, cut_id FROM snapshots ORDER BY seq;
DROP VIEW snapshot_counts;
DROP VIEW unfinished_snapshots;
DROP VIEW cut_snapshots;
DROP TABLE snapshots;
DROP TABLE snapshot_sequence;
ALTER TABLE earlier RENAME TO snapshots;
CREATE INDEX snapshots_by_cut ON snapshots (cut_id);
UPDATE vreldrcore_db_info SET value = '6' WHERE key = 'version';
)";

}  // namespace test_support
