#!/bin/sh
# Installs the build as the README says, in /usr/local and in another prefix, builds the README's
# example against each with its own words, and runs it on a throwaway host. The loader finds the
# libraries by what the README does for that, not by an environment variable. Then the same with the
# host of examples/own-host in the place of ours: consumer_test.sh SOURCE_DIR BUILD_DIR
set -eu
source=$(realpath "$1")
build=$(realpath "$2")
here=$source/tests/consumer

if [ "${CONSUMER_IN_NAMESPACE:-}" != yes ]; then
  # Directories of its own where an installation goes.
  map=
  [ "$(id -u)" -eq 0 ] || map=--map-root-user
  CONSUMER_IN_NAMESPACE=yes exec unshare --mount $map "$0" "$source" "$build"
fi
work=$(mktemp -d)
trap 'chattr -R -i "$work" 2>/dev/null || :; rm -rf "$work"' EXIT
mkdir "$work/etc"
cp -a /etc/. "$work/etc" 2>/dev/null || :  # what others may not read is not needed
mount --bind "$work/etc" /etc
for dir in /var /usr/local /opt; do mount -t tmpfs tmpfs "$dir"; done
unset LD_LIBRARY_PATH

# The indented lines of a chapter of the README, for the build at hand and without sudo.
commands() {
  sed -n "/^##* $1\$/,/^##/s/^    //p" "$source/README.md" | grep -v '^\./run' |
    sed "s#^sudo ##; s#build/demo#'$build'#"
}

# Builds the example with CMake: consumer DIR CMAKE_ARGUMENT...
consumer() {
  dir=$1
  shift
  cmake -S "$here" -B "$dir" -G Ninja "-DEXAMPLE=$work/service.cpp" "$@" >"$dir.log"
  cmake --build "$dir"
}

# Runs the programs on a host with one volume and one LUN, which the example speaks of.
try_all() {
  prefix=$1
  shift
  host=$(mktemp -d "$work/host-XXXXXX")
  mkdir "$host/volume" "$host/state"
  cat >"$host/vreldr.json" <<JSON
{"state_dir": "$host/state",
 "volumes": [{"name": "v1", "engine": "local", "path": "$host/volume"}]}
JSON
  export VRELDR_CONFIG="$host/vreldr.json"
  "$prefix/bin/drgroupctl" target create db-disk --volume v1 --type lun --size 1M
  snapshots=0
  for program; do
    "$program" >out
    snapshots=$((snapshots + 1))
    grep -q '"desc" : "before the upgrade"' out || { cat out; exit 1; }
    [ "$(grep -c '"gsnap_id" : "shop-gsnap-' out)" -eq $snapshots ] || { cat out; exit 1; }
  done
  test -e "$prefix/share/man/man1/drgroupctl.1"
  test -e "$prefix/share/bash-completion/completions/drgroupctl"
}

cd "$work"
# shellcheck disable=SC2016 # the fences of the example
sed -n '/^```cpp$/,/^```$/p' "$source/README.md" | sed '1d;$d' >service.cpp
grep -q 'int main' service.cpp || { echo "README.md has no example" >&2; exit 1; }

{ commands Installing; commands 'Using the library'; } >install.sh
[ "$(grep -Ec '^(cmake --install|ldconfig$|c\+\+ )' install.sh)" -eq 3 ] || { cat install.sh; exit 1; }
sh -eu install.sh >install.log
mv a.out local
consumer cmake-local
try_all /usr/local ./local cmake-local/consumer

# From here on there is nothing in /usr/local, and the loader knows of nothing there.
umount /usr/local /var
for dir in /usr/local /var; do mount -t tmpfs tmpfs "$dir"; done
ldconfig
if ./local 2>/dev/null; then echo "the libraries come from somewhere else" >&2; exit 1; fi

commands 'In another prefix' >elsewhere.sh
[ "$(grep -Ec '^(cmake --install|c\+\+ )' elsewhere.sh)" -eq 2 ] || { cat elsewhere.sh; exit 1; }
sh -eu elsewhere.sh >elsewhere.log
mv a.out elsewhere
consumer cmake-elsewhere -DCMAKE_PREFIX_PATH=/opt/drgroup
try_all /opt/drgroup ./elsewhere cmake-elsewhere/consumer

# Builds the example of an own host against the package in a prefix, runs it, and looks at what it
# says and at the catalogue that it leaves: own_host DIR PREFIX
own_host() {
  cmake -S "$source/examples/own-host" -B "$1" -G Ninja "-DCMAKE_PREFIX_PATH=$2" \
    '-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror' >"$1.log"
  cmake --build "$1"
  rm -rf /var/packages/Guestora/etc
  "$1/own-host" "$work/$1/catalogue" >out || { cat out; exit 1; }
  for line in '  tables 1, files 1' 'deleting: done' \
    'protecting db-disk is refused: 419 this host keeps targets in memory and does not replicate'; do
    grep -qxF "$line" out || { cat out; exit 1; }
  done
  rows=$(sqlite3 "$1/catalogue/drgroup.db" "SELECT group_concat(tag || ' ' || status) FROM gsnap_meta;
    SELECT group_concat(target_id || ' ' || tsnap_id) FROM target_snap_list")
  [ "$rows" = 'shop 1
db-disk snap-3,db-share snap-4' ] || { echo "$rows"; exit 1; }
}

# The page about it says of every header whether an own host needs it.
(cd "$source/host/include" && find . -name '*.h') | sed 's,^\./,,' | while IFS= read -r header; do
  grep -qF "\`$header\`" "$source/docs/own-host.md" ||
    { echo "docs/own-host.md does not say who needs $header" >&2; exit 1; }
done

# Libraries of the same contract under the library as it is installed, by being loaded before; and
# then under one that was built for them, with nothing of our own host there.
own_host loaded /opt/drgroup
cmake --install loaded --prefix /opt/own >own.log
cp -a /opt/drgroup/lib/libvreldrcore.so* /opt/drgroup/lib/libvrelcore.so* /opt/own/lib

# What is taken away leaves nothing of ours.
commands Removing >removing.sh
[ "$(grep -c '^cmake --build' removing.sh)" -eq 1 ] || { cat removing.sh; exit 1; }
sh -eu removing.sh >removing.log
left=$(find /opt/drgroup /var/packages -name '*vrel*' -o -name '*drgroup*' ! -path '*/etc/*' ! -path /opt/drgroup)
[ -z "$left" ] || { echo "not removed: $left" >&2; exit 1; }

cmake -S "$source" -B external -G Ninja -DVRELDRGROUP_HOST=external -DVRELDRGROUP_TESTS=OFF \
  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_PREFIX_PATH=/opt/own >external.log
cmake --build external
cmake --install external --prefix /opt/own >>own.log
own_host built /opt/own
ldd /opt/own/lib/libvreldrgroup.so.1 >libraries
[ "$(grep -c ' => /opt/own/lib/libvrel' libraries)" -eq 4 ] || { cat libraries; exit 1; }

echo "the installed package works with CMake and with pkg-config, in /usr/local and in another prefix," \
  "and on the host of the example"
