#!/bin/sh
# Compares what the shared libraries export with what is recorded of it in interface/: functions,
# and the types that they speak of. interface_check.sh SOURCE_DIR BUILD_DIR [--record]
#
# A difference is a decision: whether what is built against the old libraries still works, and what
# becomes of the library's version. With --record the libraries as they are become the recorded ones.
set -eu
source=$(realpath "$1")
build=$(realpath "$2")
mode=${3:-}

failed=0
for library in host/libvrelcore host/libvreldrcore host/libvreldrnode host/vreldr/libvreldr \
  src/libvreldrgroup; do
  name=$(basename "$library")
  file=$build/$library.so
  recorded=$source/interface/$name.abi

  # What was compiled into it of other libraries is none of its interface.
  others=$(nm -DC --defined-only "$file" | cut -d ' ' -f 3- |
    grep -E '^(std|__gnu_cxx|Json)::|(typeinfo|vtable).* for (std|__gnu_cxx|Json)::' || :)
  if [ -n "$others" ]; then
    printf '%s exports what is not its own:\n%s\n' "$name" "$others" >&2
    failed=1
  fi

  if [ "$mode" = --record ]; then
    abidw --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs \
      --no-parameter-names --type-id-style hash --out-file "$recorded" "$file"
  elif ! abidiff --exported-interfaces-only --no-show-locs "$recorded" "$file"; then
    echo "the interface of $name is not the recorded one: if that is meant, \"./run interface\" records it" >&2
    failed=1
  fi
done
exit $failed
