#!/bin/sh
# The main job on real data, on a throwaway host: demo.sh BUILD_DIR [PATH...], or with what is
# installed: demo.sh --installed [PATH...]
#
# Makes its own temporary directory and, in a private mount namespace, a /var of its own for the
# library's fixed paths; both are gone at the end, whatever the end is.
set -eu
if [ "${1:-}" != --inside ]; then
  build=$1
  [ "$build" = --installed ] || build=$(realpath "$build")
  shift
  for path; do
    [ -r "$path" ] || {
      echo "demo: cannot read \"$path\": name files and folders that exist" >&2
      exit 2
    }
  done
  work=$(mktemp -d "${TMPDIR:-/tmp}/drgroup-demo.XXXXXX")
  # Copied snapshots are immutable where the system allows it, also for rm.
  trap 'chattr -f -R -i "$work" || :; rm -rf "$work"' EXIT
  trap 'exit 130' INT TERM HUP
  map=
  [ "$(id -u)" -eq 0 ] || map=--map-root-user
  # shellcheck disable=SC2086 # no word at all for root
  unshare --mount $map "$0" --inside "$build" "$work" "$@" || {
    status=$?
    echo "demo: failed, and has removed what it made" >&2
    exit $status
  }
  exit 0
fi

source=$(realpath "$(dirname "$0")/..")
build=$2
work=$3
shift 3
script_dir=/var/packages/Guestora/target/sbin
if [ "$build" = --installed ]; then
  cp -R "$script_dir" "$work/sbin"
else
  PATH=$build/tools/drgroupctl:$PATH
  cp -R "$source/sbin" "$work/sbin"
fi
mount -t tmpfs tmpfs /var
mkdir -p "$script_dir"
cp -R "$work/sbin/." "$script_dir"

say() { printf '\n== %s\n' "$*"; }
show() { # the command as it would be typed, then its output
  printf '$'
  for word; do
    case $word in
      *[!A-Za-z0-9_./=-]*) printf " '%s'" "$word" ;;
      *) printf ' %s' "$word" ;;
    esac
  done
  printf '\n'
  "$@"
}
ask_json() { sqlite3 :memory: "SELECT json_extract(readfile('$work/answer.json'), '$1')"; }

# One checksum over the names and bytes of everything below a folder, or of a file.
checksum() {
  if [ -d "$1" ]; then
    # shellcheck disable=SC2016 # the inner shell expands
    (cd "$1" && find . \( -type f -o -type l \) -print0 | sort -z |
      xargs -0 sh -c 'for f; do if [ -L "$f" ]; then readlink "$f"; else sha256sum "$f"; fi; done' sh) |
      sha256sum
  else
    sha256sum <"$1"
  fi | cut -d ' ' -f 1
}

targets='ledger-disk team-files mail-guest'
target_path() {
  drgroupctl target list --json >"$work/answer.json"
  sqlite3 :memory: "SELECT json_extract(value, '\$.path') FROM
    json_each(readfile('$work/answer.json'), '\$.targets')
    WHERE json_extract(value, '\$.target_id') = '$1'"
}
# Keeps the checksums of the targets as they are now, under a name.
remember() {
  for target in $targets; do checksum "$(target_path "$target")" >"$work/sum.$1.$target"; done
}
# Compares the bytes of every target snapshot of a group snapshot with what was remembered.
prove() {
  for target in $targets; do
    drgroupctl snapshot show "$1" --json >"$work/answer.json"
    path=$(sqlite3 :memory: "SELECT json_extract(value, '\$.path') FROM
      json_each(readfile('$work/answer.json'), '\$.targets')
      WHERE json_extract(value, '\$.target_id') = '$target'")
    is=$(checksum "$path")
    was=$(cat "$work/sum.$2.$target")
    [ "$is" = "$was" ] || {
      echo "The snapshot of $target does not hold the bytes that the target had: $is, not $was"
      exit 1
    }
    echo "The snapshot of $target holds the bytes that the target had: sha256 $is"
  done
}

# Fails unless a target's bytes changed between two of the times that were remembered.
differs() {
  ! cmp -s "$work/sum.$2.$1" "$work/sum.$3.$1" || {
    echo "demo: $1 did not change" >&2
    exit 1
  }
}

say "A host with two volumes"
mkdir "$work/content" "$work/state" "$work/vol-two" "$work/vol-one"
if truncate -s 512M "$work/btrfs.img" && mkfs.btrfs -q "$work/btrfs.img" >"$work/mkfs.log" 2>&1 &&
  mount -o loop "$work/btrfs.img" "$work/vol-one" 2>"$work/mount.log"; then
  echo "vol-one, where the data is, is a btrfs file system in a file; vol-two, for the DR copies, is a"
  echo "plain directory."
else
  echo "Both are plain directories: a btrfs image cannot be mounted here without root."
fi
cat >"$work/vreldr.json" <<JSON
{"state_dir": "$work/state",
 "volumes": [{"name": "vol-one", "engine": "local", "path": "$work/vol-one"},
             {"name": "vol-two", "engine": "local", "path": "$work/vol-two"}]}
JSON
export VRELDR_CONFIG="$work/vreldr.json"
show drgroupctl volume list

say "Three targets with real data"
mkdir "$work/content/disk" "$work/content/guest"
if [ $# -gt 0 ]; then
  cp -R -- "$@" "$work/content/disk"
else
  cp -RL /usr/share/common-licenses /etc/os-release /etc/debian_version "$work/content/disk"
  set -- "$source/docs" "$source/src" "$source/host" "$source/README.md"
fi
make_image() { # the size of its content, and room for a file system
  size=$(($(du -sk "$2" | cut -f 1) * 3 / 2 + 8192))
  mke2fs -q -t ext4 -E root_owner=0:0 -d "$2" "$1" "${size}k" >"$work/mkfs.log"
}
make_image "$work/content/disk.img" "$work/content/disk"
make_image "$work/content/guest/system.img" "$work/content/disk"
cat >"$work/content/guest/mail-guest.json" <<JSON
{"name": "mail-guest", "memory_mib": 1024, "kernel": "$(uname -r)", "disks": ["system.img"]}
JSON
show drgroupctl target import ledger-disk --volume vol-one --type lun "$work/content/disk.img"
show drgroupctl target import team-files --volume vol-one --type share "$@"
show drgroupctl target import mail-guest --volume vol-one --type guest \
  "$work/content/guest/mail-guest.json" "$work/content/guest/system.img"
show drgroupctl target list

say "A group of them"
show drgroupctl group create office --target ledger-disk --target team-files --target mail-guest

say "A group snapshot"
remember first
show drgroupctl snapshot create office --description "before the change"
drgroupctl snapshot list office --latest --json >"$work/answer.json"
first=$(ask_json '$.snapshots[0].gsnap_id')

say "The data changes, and a second group snapshot"
printf 'changed in place' | dd of="$(target_path ledger-disk)" bs=1 seek=4096 conv=notrunc status=none
echo "a new file" >"$(target_path team-files)/new-file"
printf 'changed in place' |
  dd of="$(target_path mail-guest)/system.img" bs=1 seek=8192 conv=notrunc status=none
remember second
show drgroupctl snapshot create office --description "after the change" --lock
drgroupctl snapshot list office --latest --json >"$work/answer.json"
second=$(ask_json '$.snapshots[0].gsnap_id')

say "List and show"
show drgroupctl snapshot list office
show drgroupctl snapshot show "$second"

say "Proof"
for target in $targets; do differs "$target" first second; done
prove "$first" first
prove "$second" second

say "Delete the first one"
show drgroupctl snapshot delete "$first" --yes
show drgroupctl snapshot list office
prove "$second" second

say "The data is destroyed"
printf 'destroyed' | dd of="$(target_path ledger-disk)" bs=1 seek=0 conv=notrunc status=none
find "$(target_path team-files)" -mindepth 1 -delete
: >"$(target_path mail-guest)/system.img"
remember destroyed
for target in $targets; do
  differs "$target" second destroyed
  echo "$target: sha256 $(cat "$work/sum.destroyed.$target")"
done

say "Restore the second one"
show drgroupctl snapshot restore "$second" --yes
remember restored
for target in $targets; do
  cmp -s "$work/sum.second.$target" "$work/sum.restored.$target" || {
    echo "demo: $target was not restored" >&2
    exit 1
  }
  echo "$target holds the bytes of the snapshot again: sha256 $(cat "$work/sum.restored.$target")"
done

say "Clone it"
show drgroupctl snapshot clone "$second"
# There is one target of each kind, so that another one of the same kind is its clone.
drgroupctl target list --json >"$work/answer.json"
for target in $targets; do
  clone=$(sqlite3 :memory: "SELECT json_extract(clone.value, '\$.path') FROM
    json_each(readfile('$work/answer.json'), '\$.targets') AS clone,
    json_each(readfile('$work/answer.json'), '\$.targets') AS source
    WHERE json_extract(source.value, '\$.target_id') = '$target'
      AND json_extract(clone.value, '\$.type') = json_extract(source.value, '\$.type')
      AND clone.key <> source.key")
  is=$(checksum "$clone")
  [ "$is" = "$(cat "$work/sum.second.$target")" ] || {
    echo "demo: the clone of $target does not hold the bytes of its snapshot" >&2
    exit 1
  }
  echo "The clone of $target holds the bytes of its snapshot: sha256 $is"
done

say "A target snapshot is lost behind the catalogue's back, and the catalogue repaired"
drgroupctl snapshot show "$second" --json >"$work/answer.json"
lost=$(dirname "$(sqlite3 :memory: "SELECT json_extract(value, '\$.path') FROM
  json_each(readfile('$work/answer.json'), '\$.targets')
  WHERE json_extract(value, '\$.target_id') = 'ledger-disk'")")
if [ "$(stat -f -c %T "$lost")" = btrfs ]; then
  show btrfs subvolume delete "$lost"
else
  chattr -f -R -i "$lost" || :
  show rm -rf "$lost"
fi
show drgroupctl snapshot repair office --dry-run
show drgroupctl snapshot repair office --yes
show drgroupctl snapshot list office
drgroupctl snapshot list office --json >"$work/answer.json"
[ "$(ask_json '$.snapshots[0].status')" = bad ] || {
  echo "demo: the status is not bad" >&2
  exit 1
}

say "Protect the group: a DR copy of every target on the second volume"
show drgroupctl protect office --volume vol-two --dr-group office-dr
show drgroupctl sync office
show drgroupctl status office

say "A group snapshot goes over, and is recorded on the DR side"
remember third
show drgroupctl snapshot create office --description "to fail over to"
drgroupctl snapshot list office --latest --json >"$work/answer.json"
third=$(ask_json '$.snapshots[0].gsnap_id')
show drgroupctl snapshot ship "$third"
show drgroupctl sync office
show drgroupctl snapshot sync office-dr
show drgroupctl snapshot list office-dr

# Changes every target of the group, or with "-dr" every DR copy, where it works.
change() {
  printf '%s' "$2" | dd of="$(target_path "ledger-disk$1")" bs=1 seek=8192 conv=notrunc status=none
  echo "$2" >"$(target_path "team-files$1")/new-file"
  printf '%s' "$2" |
    dd of="$(target_path "mail-guest$1")/system.img" bs=1 seek=12288 conv=notrunc status=none
}
# Compares the bytes of every target, or with "-dr" of every DR copy, with what was remembered.
prove_copies() {
  for target in $targets; do
    is=$(checksum "$(target_path "$target$1")")
    [ "$is" = "$(cat "$work/sum.$2.$target")" ] || {
      echo "demo: $target$1 holds other bytes than it should" >&2
      exit 1
    }
    echo "$target$1 holds exactly those bytes: sha256 $is"
  done
}

say "The data changes; fail over to the group snapshot"
change '' 'changed before the failover'
remember fourth
for target in $targets; do differs "$target" third fourth; done
show drgroupctl failover office --snapshot "$third" --yes
prove_copies -dr third

say "Work goes on at the DR copies; reprotect the group and send that back"
change -dr 'changed at the DR copies'
for target in $targets; do
  checksum "$(target_path "$target-dr")" >"$work/sum.fifth.$target"
  differs "$target" third fifth
done
show drgroupctl reprotect office
show drgroupctl sync office

say "Switch back: the first copies work again, with what was written at the others"
show drgroupctl switchover office --dry-run
show drgroupctl switchover office
prove_copies '' fifth
show drgroupctl status office

say "Done: group snapshots taken and proven, deleted, restored, cloned and lost; the group protected,
   failed over to a group snapshot, reprotected and switched back, with its bytes proven each time."
umount "$work/vol-one" 2>/dev/null || :
