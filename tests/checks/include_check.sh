#!/bin/sh
# Includes go down the floors of docs/architecture.md only: include_check.sh SOURCE_DIR
# Every line that breaks a rule is told with its file, its number and the rule.
set -eu
cd "$1"
files=$(mktemp)
trap 'rm -f "$files"' EXIT
git ls-files -co --exclude-standard -- '*.h' '*.cpp' | while IFS= read -r file; do
  if [ -e "$file" ]; then echo "$file"; fi
done >"$files"
grep -E '^(host|include|src|tools)/' "$files" |
  xargs -r grep -HnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"]' |
  awk -v files="$files" '
    # The higher number may include the lower one.
    BEGIN {
      count = split("process vrelcore vreldrcore config vreldr/base vreldr/protocol foundation vreldrnode " \
                    "vreldr/store vreldr/engine vreldr/engine/support vreldr/engine/local vreldr/hold " \
                    "vreldr/target vreldr/plan vreldr/api", names, " ")
      for (i = 1; i <= count; ++i) floors["host/" names[i]] = i
      count = split("output command host groups action verbs", names, " ")
      for (i = 1; i <= count; ++i) floors["tools/drgroupctl/" names[i]] = i
      floors["tools/drgroupctl"] = count + 1
      # What makes the engines knows all of them.
      floors["host/vreldr/engine/tables.cpp"] = floors["host/vreldr/engine/local"]

      # From where includes of a room are looked up; the first that has the file counts.
      roots["host"] = "host/vreldr/ host/include/ host/ include/ src/ tools/drgroupctl/"
      roots["src"] = "src/ include/ host/include/ host/vreldr/ host/ tools/drgroupctl/"
      roots["include"] = "include/ host/include/ host/vreldr/ host/ src/ tools/drgroupctl/"
      roots["tools"] = "tools/drgroupctl/ include/ host/include/ src/ host/vreldr/ host/"

      allowed["host"] = "host host/include"
      allowed["host/include"] = "host/include"
      allowed["include"] = "include host/include"
      allowed["src"] = "src include host/include"
      allowed["tools"] = "tools include host/include"
      while ((getline name < files) > 0) exists[name] = 1
    }
    function Room(path) {
      if (path ~ /^host\/include\//) return "host/include"
      return substr(path, 1, index(path, "/") - 1)
    }
    function Folder(path) {
      sub(/\/[^\/]*$/, "", path)
      return path
    }
    function Floor(path) {
      if (path in floors) return floors[path]
      return (Folder(path) in floors) ? floors[Folder(path)] : 0
    }
    function Find(from, name, count, list, i) {
      if ((Folder(from) "/" name) in exists) return Folder(from) "/" name
      count = split(roots[substr(from, 1, index(from, "/") - 1)], list, " ")
      for (i = 1; i <= count; ++i) if ((list[i] name) in exists) return list[i] name
      return ""
    }
    function Tell(rule) {
      print place ": " rule
      isBad = 1
    }
    {
      split($0, parts, ":")
      from = parts[1]
      place = from ":" parts[2]
      if (from ~ /^(host\/vreldr|tools)\// && Floor(from) == 0) {
        Tell("the folder " Folder(from) " has no floor yet: give it one in this check")
      }
      isOwn = $0 ~ /include[[:space:]]*"/
      name = $0
      sub(/^[^<"]*[<"]/, "", name)
      sub(/[>"].*$/, "", name)
      if (name ~ /(^|\/)\.\.?\//) {
        Tell("\"" name "\" is to be named from its root, without dots")
        next
      }
      to = Find(from, name)
      if (to == "") {
        if (isOwn) Tell("\"" name "\" cannot be found: what is no file of the project has <>")
        next
      }
      room = Room(from)
      if (index(" " allowed[room] " ", " " Room(to) " ") == 0) {
        Tell(room "/ includes " to ": it may include what is in " allowed[room])
      } else if (Room(to) == room && Floor(from) != 0 && Floor(to) > Floor(from)) {
        Tell("includes " to ": includes go down the floors, and that is above " Folder(from))
      }
    }
    END {
      if (NR == 0) Tell("there are no includes to look at")
      exit isBad
    }'
