/* Schema version 1: the three tables of a group's catalogue.

   No column is NOT NULL: whoever writes a row may leave any of its columns out.
   IF NOT EXISTS: a database that has the three tables but records no version is taken over as it
   stands and only gets the indexes that it is without. */

CREATE TABLE IF NOT EXISTS gsnap_meta (
  "desc" TEXT,
  is_user_locked INTEGER,
  cw_type INTEGER,
  gsnap_id TEXT,
  tag TEXT,
  gsnap_time INTEGER,
  status INTEGER
);

CREATE TABLE IF NOT EXISTS target_snap_list (
  target_id TEXT,
  target_type INTEGER,
  tsnap_id TEXT,
  gsnap_id TEXT
);

CREATE TABLE IF NOT EXISTS target_replica_list (
  src_target_id TEXT,
  dst_target_id TEXT,
  gsnap_id TEXT
);

/* Rows are found by gsnap_id. No target identifier has an index: a migration rewrites those
   columns in every row, and an index on them would double its cost. */
CREATE UNIQUE INDEX IF NOT EXISTS gsnap_meta_gsnap_id ON gsnap_meta (gsnap_id);
CREATE INDEX IF NOT EXISTS target_snap_list_gsnap_id ON target_snap_list (gsnap_id);
CREATE INDEX IF NOT EXISTS target_replica_list_gsnap_id ON target_replica_list (gsnap_id);
