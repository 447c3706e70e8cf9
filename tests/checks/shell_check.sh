#!/bin/sh
# Every shell script is clean; the database script is plain POSIX.
set -eu
cd "$1"
git ls-files -co --exclude-standard | while IFS= read -r file; do
  if head -n 1 "$file" | grep -Eq '^#!/bin/(ba)?sh'; then echo "$file"; fi
done | xargs -r shellcheck
