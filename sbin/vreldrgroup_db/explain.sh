# shellcheck shell=sh disable=SC2154
# Says on file descriptor 5, in one line, why sqlite3 could not repair $db within $timeout ms of
# waiting (both from the environment).
#
# sqlite3 runs this when a repair has failed. File descriptor 4 is the pipe with what sqlite3 has
# said. What counts is the line after "begin"; a line "end" is always there, so that reading stops.

while read -r said && [ "$said" != begin ]; do :; done <&4
read -r said <&4
said=${said#*near line *: }

case $said in
  'has '*) why="$said" ;;
  'no such table: '*)
    why="has no table ${said#no such table: }: restore the file from a backup" ;;
  *'database is locked'*)
    why="is locked by another process for longer than $timeout ms: try again when it is done" ;;
  *'not a database'*) why='is not a SQLite database: move it away or restore it from a backup' ;;
  *'malformed'*) why='is damaged: restore it from a backup' ;;
  *'is full'*) why='does not fit on its file system: free space there and try again' ;;
  *'unable to open'* | *'readonly'*)
    why='or its directory cannot be written: check their permissions and the file system' ;;
  *) why="cannot be repaired and is unchanged; SQLite says: $said" ;;
esac
printf 'vreldrgroup_db.sh: %s %s\n' "$db" "$why" >&5
