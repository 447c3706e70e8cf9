#!/bin/sh
# The long run of the torture ring: torture.sh BUILD_DIR [OPTION...]
#
# Cuts the power of hosts at moments that a seed chooses, lets every call of the system fail once, and
# looks at what programs find in snapshots that were made while they wrote.
# The seed of a run is printed; the same seed cuts at the same kill points of the same sequences.
set -eu
usage() {
  cat <<'TXT'
Options of torture:
  --seed N     where the random choices start; a new one when left out
  --count N    how many cuts, or failing calls, each test makes; no bound when left out
  --seconds N  how long each test goes on; 600 when left out
  --only TEXT  only the tests that have this in their names, such as PowerCut, FailingCall,
               HeldOrProven (dependent writes, 20 rounds), Postgres (20 rounds), DiskEach or btrfs
  --case TEXT  only this failing call, as a fault names it: "sync, call 12, EIO"
TXT
}

build=$1
shift
seed=
count=1000000000
seconds=600
only=
case=
while [ $# -gt 0 ]; do
  case $1 in
    --help)
      usage
      exit 0
      ;;
    --seed | --count | --seconds | --only | --case)
      [ $# -ge 2 ] || {
        echo "torture: $1 needs a value" >&2
        exit 2
      }
      case $1 in
        --seed) seed=$2 ;;
        --count) count=$2 ;;
        --seconds) seconds=$2 ;;
        --only) only=$2 ;;
        --case) case=$2 ;;
      esac
      shift 2
      ;;
    *)
      echo "torture: there is no option \"$1\"" >&2
      usage >&2
      exit 2
      ;;
  esac
done
if [ "$(id -u)" -ne 0 ]; then
  echo "torture: NOT RUN: cutting the power of loop images needs root" >&2
  exit 1
fi
# One seed for all tests, so that one number tells what was run.
[ -z "$case" ] || [ -n "$only" ] || only=FailingCall
[ -n "$seed" ] || seed=$(od -An -N4 -tu4 /dev/urandom | tr -d ' ')
echo "seed $seed"
TORTURE_SEED=$seed TORTURE_COUNT=$count TORTURE_SECONDS=$seconds TORTURE_ONLY=$case \
  exec "$build/tests/torture/torture_test" --gtest_filter="*$only*"
