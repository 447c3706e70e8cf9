#!/bin/sh
# Creates and upgrades the database of a group's snapshots.
#
# Usage: vreldrgroup_db.sh repair_db DIR
#
# Brings DIR/drgroup.db to the current schema: a missing or empty file gets all of it, an older
# database gets what it is without, a current one is not written to. DIR/drgroup.db may be a
# symbolic link to the real file. The work is one transaction: a repair that fails leaves the old
# schema, one that is killed the old or the new one, and any number of repairs may run at once. A
# creation that fails may leave an empty file behind, which the next repair fills.
#
# Exit codes: 0  the database has the current schema
#             1  it could not be brought there; one line on stderr says why and what to do
#             2  wrong usage
#
# Environment: VRELDRGROUP_DB_TIMEOUT_MS  how long to wait for another process's lock, in
#                                         milliseconds; 20000 if not set

set -u

# The schema versions, oldest first. Version N is laid down on top of version N-1 by schema_N.sql
# in the folder vreldrgroup_db beside this script; the last one is the current version. Comments
# in those files are /* */, because a file is run as one line of SQL.
versions='1 2 3'
tables='gsnap_meta, target_snap_list, target_replica_list'

fail() {
  printf 'vreldrgroup_db.sh: %s\n' "$2" >&2
  exit "$1"
}

usage='usage: vreldrgroup_db.sh repair_db DIR'
[ $# -eq 2 ] || fail 2 "expected an action and a directory, got $# arguments; $usage"
[ "$1" = repair_db ] || fail 2 "unknown action \"$1\"; $usage"
[ -n "$2" ] || fail 2 "the directory is empty text; $usage"

timeout=${VRELDRGROUP_DB_TIMEOUT_MS:-20000}
case $timeout in
  *[!0-9]*) fail 2 "VRELDRGROUP_DB_TIMEOUT_MS is \"$timeout\": give it a number of milliseconds" ;;
esac

case $2 in
  /*) dir=$2 ;;
  *) dir=$PWD/$2 ;;
esac
db=$dir/drgroup.db

# A link leads into another directory: SQLite finds out whether that one can be written.
[ -d "$dir" ] || fail 1 "$dir is not an existing directory: create it first"
[ -L "$db" ] || { [ -w "$dir" ] && [ -x "$dir" ]; } ||
  fail 1 "$dir cannot be written: check its permissions and its file system"
if [ -e "$db" ]; then
  [ -f "$db" ] || fail 1 "$db is not a file: move it away"
  { [ -r "$db" ] && [ -w "$db" ]; } ||
    fail 1 "$db cannot be read and written: check its permissions and its file system"
elif [ -L "$db" ]; then
  fail 1 "$db is a link to a file that does not exist: restore that file or remove the link"
fi

# sqlite3 gets the folder of the SQL as its working directory: no path has to be quoted for it.
case $0 in
  */*) sql=${0%/*}/vreldrgroup_db ;;
  *) sql=vreldrgroup_db ;;
esac
[ -r "$sql/explain.sh" ] || fail 1 "the folder $sql is not complete: install the package again"
CDPATH='' cd -- "$sql" || exit 1
steps=
for current in $versions; do
  [ -r "schema_$current.sql" ] ||
    fail 1 "$sql/schema_$current.sql is missing: install the package again"
  steps="$steps || iif(version >= $current, '',
    replace(readfile('schema_$current.sql'), char(10), ' ')
    || 'REPLACE INTO vreldrcore_db_info VALUES (''version'', $current);')"
done

# The shell becomes sqlite3 instead of waiting for it: waiting costs half of what starting a
# process costs, and nearly every call finds nothing to do. So sqlite3 itself must act on what it
# finds. File descriptor 3 is a pipe that it reads commands from, and ".once /dev/fd/3" puts what
# the next statement prints behind them. An ".exit 256" read from there is success (the exit code
# is taken modulo 256, and ".exit 0" would only end the reading of the pipe). 4 is a pipe for all
# that sqlite3 says, 5 is where the caller wants to read errors.
#
# CHECK runs first, without waiting for a lock: a database that is current stays so. It also fails
# when one of the tables is gone. If it does not exit, REPAIR takes the write lock, looks again and
# runs the missing steps. sqlite3 stops at the first error in a text that it runs as one, and a text
# ends at a line that ends in ";". So BEGIN to SELECT have none, and the steps are one line up to
# their COMMIT: after an error nothing more of them is done.
# The journal is emptied, and that brought to disk, before it is deleted: one that a power cut brought
# back with its bytes would take the steps back.
# What follows ".read" is only reached when something has failed.
#
# Each text must stay under 4096 bytes, the shell needs a process to feed a longer one; the missing
# steps must fit into the pipe, which is 64 KiB. "-pagecache 0 0" saves making a cache in advance.
command exec 5>&2 || exec 2>/dev/null 5>&2  # the caller may have closed it
trap 'printf "vreldrgroup_db.sh: cannot start sqlite3: install this program\n" >&5; exit 1' EXIT
export db timeout
exec sqlite3 -init /dev/fd/3 -batch -pagecache 0 0 "$db" \
  3<<CHECK 4<<'EMPTY' >/dev/fd/4 2>&1 <<REPAIR
.once /dev/fd/3
SELECT '.exit 256' FROM vreldrcore_db_info WHERE key = 'version' AND value = $current
  AND NOT EXISTS (SELECT 1 FROM $tables WHERE 0);
CHECK
EMPTY
.timeout $timeout
PRAGMA journal_mode = TRUNCATE;
.print begin
.once /dev/fd/3
BEGIN IMMEDIATE
; CREATE TABLE IF NOT EXISTS vreldrcore_db_info (key TEXT PRIMARY KEY, value)
; SELECT iif(version NOT BETWEEN 1 AND $current,
    '.print has schema version ' || version || ', this release knows only 1 to $current:'
      || ' use a release that knows it or restore the file from a backup',
    iif(version NOT NULL OR EXISTS (SELECT 1 FROM sqlite_master
          WHERE type = 'table' AND name <> 'vreldrcore_db_info'),
      'SELECT 1 FROM $tables WHERE 0;', '')
    $steps || 'COMMIT; PRAGMA journal_mode = DELETE; SELECT writefile(''/dev/fd/3'', ''.exit 256'');')
  FROM (SELECT max(CAST(value AS INTEGER)) AS version FROM vreldrcore_db_info
    WHERE key = 'version')
;
.read /dev/fd/3
ROLLBACK;
PRAGMA journal_mode = DELETE;
.print end
.system . ./explain.sh
.exit 1
REPAIR
