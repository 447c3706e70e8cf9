#!/bin/sh
# Makes the Debian packages of this tree in build/package, looks at them, installs them in a root of
# their own, which is a copy of this system's as long as it lasts, and runs the demo there:
# package.sh [--reproducible]. Needs root.
set -eu
source=$(realpath "$(dirname "$0")/../..")
out=$source/build/package

# Makes the packages in DIR/packages from a copy of what is in the tree, and leaves them there.
make_packages() {
  rm -rf "$1"
  mkdir -p "$1/packages/source"
  (cd "$source" && tar -cf - --exclude=./build --exclude=./.git .) | tar -C "$1/packages/source" -xf -
  (cd "$1/packages/source" &&
    dpkg-buildpackage --no-sign --build=full >"$1/build.log" 2>&1) || {
    tail -n 50 "$1/build.log" >&2
    exit 1
  }
}

[ "$(cat "$source/VERSION")" = "$(cd "$source" && dpkg-parsechangelog --show-field Version)" ] || {
  echo "debian/changelog and VERSION do not say the same version" >&2
  exit 1
}
make_packages "$out"
cd "$out/packages"
lintian --fail-on error --profile debian ./*.changes
case ${1:-} in
  --reproducible)
    make_packages "$out/elsewhere/deeper"
    for package in *.deb; do
      cmp "$package" "$out/elsewhere/deeper/packages/$package"
    done
    echo "made twice in different places, all packages are the same"
    ;;
esac

# The packages' own root: this system, over which they are installed.
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
unshare --mount --propagation private sh -eu -s "$root" "$source" >"$out/installed.log" 2>&1 <<'SH' || {
root=$1/root
mount -t tmpfs tmpfs "$1"
mkdir "$1/upper" "$1/work" "$root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" "$root"
for dir in dev proc sys tmp; do mount --rbind "/$dir" "$root/$dir"; done
mkdir -p "$root/run/vreldrgroup"
mount --bind "$2" "$root/run/vreldrgroup"
chroot "$root" sh -eu -s <<'INSIDE'
cd /run/vreldrgroup
dpkg --install build/package/packages/*.deb
[ "$(command -v drgroupctl)" = /usr/bin/drgroupctl ]
demo/demo.sh --installed
debian/tests/consumer
for package in build/package/packages/*.deb; do dpkg-deb --field "$package" Package; done |
  xargs dpkg --purge
[ ! -e /var/packages/Guestora/target/sbin ]
INSIDE
SH
  tail -n 50 "$out/installed.log" >&2
  exit 1
}
echo "the packages in build/package/packages install, run the demo, build the example and go again"
