#!/bin/sh
# Every C++ source is laid out as .clang-format says.
set -eu
cd "$1"
git ls-files -z -co --exclude-standard -- '*.cpp' '*.h' | xargs -0 -r clang-format --dry-run --Werror
