/* Schema version 2: a group snapshot may carry a minor identifier; NULL where it has none. */

ALTER TABLE gsnap_meta ADD COLUMN minor_id INTEGER;
