#!/bin/sh
# Installs the build, builds the README's example against the installed package, once with CMake and
# once with pkg-config, and runs both on a throwaway host: consumer_test.sh SOURCE_DIR BUILD_DIR
set -eu
source=$(realpath "$1")
build=$(realpath "$2")
here=$source/tests/consumer

if [ "${CONSUMER_IN_NAMESPACE:-}" != yes ]; then
  # A /var of its own, for the fixed paths of the library.
  map=
  [ "$(id -u)" -eq 0 ] || map=--map-root-user
  CONSUMER_IN_NAMESPACE=yes exec unshare --mount $map "$0" "$source" "$build"
fi
work=$(mktemp -d)
trap 'chattr -R -i "$work" 2>/dev/null || :; rm -rf "$work"' EXIT
mount -t tmpfs tmpfs /var

stage=$work/stage
DESTDIR=$stage cmake --install "$build" >"$work/install.log"
prefix=$stage$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
mkdir -p /var/packages/Guestora/target
cp -a "$stage/var/packages/Guestora/target/." /var/packages/Guestora/target/
export LD_LIBRARY_PATH="$prefix/lib"

# shellcheck disable=SC2016 # the fences of the example
sed -n '/^```cpp$/,/^```$/p' "$source/README.md" | sed '1d;$d' >"$work/example.cpp"
grep -q 'int main' "$work/example.cpp" || { echo "README.md has no example" >&2; exit 1; }

cmake -S "$here" -B "$work/cmake" -G Ninja "-DEXAMPLE=$work/example.cpp" \
  "-DCMAKE_PREFIX_PATH=$prefix" >"$work/cmake.log"
cmake --build "$work/cmake"

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046 # words
c++ -std=c++17 -Wall -Wextra -Werror "$work/example.cpp" -o "$work/consumer" \
  $(pkg-config --cflags --libs vreldrgroup)

# The library against libraries of the same contract that it did not build.
cmake -S "$source" -B "$work/external" -G Ninja -DVRELDRGROUP_HOST=external -DVRELDRGROUP_TESTS=OFF \
  "-DCMAKE_PREFIX_PATH=$prefix" >"$work/external.log"
cmake --build "$work/external"

# The host that the example speaks of: one volume, one LUN.
mkdir "$work/volume" "$work/state"
cat >"$work/vreldr.json" <<JSON
{"state_dir": "$work/state",
 "volumes": [{"name": "v1", "engine": "local", "path": "$work/volume"}]}
JSON
export VRELDR_CONFIG="$work/vreldr.json"
"$prefix/bin/drgroupctl" target create db-disk --volume v1 --type lun --size 1M

for program in "$work/cmake/consumer" "$work/consumer"; do
  "$program" >"$work/out"
  grep -q '"desc" : "before the upgrade"' "$work/out" || { cat "$work/out"; exit 1; }
done
[ "$(grep -c '"gsnap_id" : "shop-gsnap-' "$work/out")" -eq 2 ] || { cat "$work/out"; exit 1; }
test -e "$prefix/share/man/man1/drgroupctl.1"
test -e "$prefix/share/bash-completion/completions/drgroupctl"
echo "the installed package works with CMake and with pkg-config"
