#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The examples of docs/reading-records.md are what tavriskctl prints: below each line "$ COMMAND" of
# an indented block stands the command's output.
# usage: reading.sh DOCUMENT SAMPLES TAVRISKCTL...
# With UPDATE=1 the document is written anew.
set -eu
document=$1
samples=$2
shift 2
made=$(mktemp)
trap 'rm -f "$made"' EXIT
ctl=$*
# shellcheck disable=SC2086 # an emulator may stand in front of it
tavriskctl() { $ctl "$@"; }

cd "$samples"
examples=0
skipping=no
while IFS= read -r line; do
  case $line in
    '    $ '*)
      printf '%s\n' "$line" >>"$made"
      eval "${line#????\$ }" 2>&1 | sed 's/^/    /' >>"$made"
      examples=$((examples + 1))
      skipping=yes
      ;;
    '    '*) [ $skipping = yes ] || printf '%s\n' "$line" >>"$made" ;;
    *)
      printf '%s\n' "$line" >>"$made"
      skipping=no
      ;;
  esac
done <"$document"

[ -z "${UPDATE-}" ] || cp "$made" "$document"
diff "$document" "$made"
[ $examples -ge 28 ]
