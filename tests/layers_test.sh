#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# layers_test.sh SOURCE: holds the order in which the folders below SOURCE/src may include each other.
set -eu
cd "$1/src"

# FOLDER MAY-INCLUDE...: a folder may always include itself. Longer names come first.
allowed='
daemon/service daemon contract text compat log records
daemon/interface contract text compat log records
daemon/intake daemon/events contract text log records
daemon/events daemon/threads contract text log records
daemon/retention daemon/threads contract text log records
daemon/threads
tools/tavriskctl tools/common contract text compat records
tools/zelctl tools/common contract text records zel platform/config.hpp
tools/common contract text records
platform contract text zel
zel contract text
records contract text log
log contract text
compat sdbusplus
contract
pch
text
'

# Of the log, records may see the call alone: which of the two logs they get is up to the program.
grep -rn --include='*.[ch]pp' --include='*.h' '#include [<"]' . | sed 's|^\./||' | awk -v table="$allowed" '
function belongs(path, folder) { return path == folder || index(path, folder "/") == 1 }
function folder_of(path,   i) {
  for (i = 1; i <= rows; i++) if (belongs(path, name[i])) return i
  return 0
}
BEGIN {
  lines = split(table, line, "\n")
  for (i = 1; i <= lines; i++) if (split(line[i], word, " ")) { name[++rows] = word[1]; may[rows] = line[i] }
}
{
  file = $0; sub(/:.*/, "", file)
  included = $0; sub(/.*#include [<"]/, "", included); sub(/[>"].*/, "", included)
  from = folder_of(file)
  if (!from) { print file ": in no folder of the map"; bad = 1; next }
  if ($0 ~ /#include </) {
    if (included ~ /^(systemd\/sd-|sdbusplus\/)/ && file !~ /^(compat|daemon\/interface|daemon\/service|tools\/tavriskctl)\//) {
      print file ": includes D-Bus, <" included ">"; bad = 1
    }
    next
  }
  checked++
  if (belongs(included, name[from])) next
  if (name[from] == "records" && belongs(included, "log") && included != "log/diag_log.hpp") {
    print file ": includes more of the log than its call, \"" included "\""; bad = 1
  }
  found = 0
  count = split(may[from], word, " ")
  for (i = 2; i <= count; i++) if (belongs(included, word[i])) found = 1
  if (!found) { print file ": must not include \"" included "\""; bad = 1 }
}
END {
  if (checked < 100) { print "only " checked + 0 " includes seen"; bad = 1 }
  exit bad
}'
