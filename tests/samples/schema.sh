#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# What tavriskctl makes of every record in JSON, whole or cut off, is what its schema promises.
# usage: schema.sh SCHEMA SAMPLES TAVRISKCTL...
set -eu
schema=$1
samples=$2
shift 2
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
count=0
for sample in "$samples"/*.cper; do
  for bytes in 100000 250 100 20 1; do
    count=$((count + 1))
    head -c "$bytes" "$sample" >"$work/$count.cper"
  done
done
[ $count -ge 140 ]
"$@" --json explain --as=cper "$work"/*.cper | split -l 1 - "$work/json."
set -- "$work"/json.*
[ $# = $count ]
# shellcheck disable=SC2046 # a list of words
/usr/bin/python3 -W ignore -m jsonschema $(printf -- '-i %s ' "$@") "$schema"
