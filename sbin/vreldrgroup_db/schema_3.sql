/* Schema version 3: what is asked about one target snapshot, and about the latest group snapshot,
   is found without reading all of the others.

   Descending, so that of group snapshots of one time the first that was recorded comes first, as
   without the index. It has no tag: a catalogue is that of one group, and with the tag in front
   the list of all group snapshots would come in the order of the index. */

CREATE INDEX IF NOT EXISTS target_snap_list_tsnap_id ON target_snap_list (tsnap_id);
CREATE INDEX IF NOT EXISTS gsnap_meta_gsnap_time ON gsnap_meta (gsnap_time DESC);
