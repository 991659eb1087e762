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
instances=
count=0
for sample in "$samples"/*.cper; do
  for bytes in 100000 250 100 20 1; do
    head -c "$bytes" "$sample" >"$work/record"
    count=$((count + 1))
    "$@" --json explain --as=cper "$work/record" >"$work/$count.json" || [ $? = 1 ]
    instances="$instances -i $work/$count.json"
  done
done
[ $count -ge 140 ]
# shellcheck disable=SC2086 # a list of words
/usr/bin/python3 -W ignore -m jsonschema $instances "$schema"
