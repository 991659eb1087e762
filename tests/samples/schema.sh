#!/bin/sh
# What tavriskctl makes of every record in JSON, whole or cut off, is what its schema promises.
# usage: schema.sh SCHEMA SAMPLES TAVRISKCTL...
set -eu
schema=$1
samples=$2
shift 2
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
for sample in "$samples"/*.cper; do
  for bytes in 100000 250 100 20 1; do
    head -c "$bytes" "$sample" >"$work/record"
    "$@" --json explain --as=cper "$work/record" >>"$work/objects" || [ $? = 1 ]
  done
done
exec python3 - "$schema" "$work/objects" <<'PYTHON'
import json
import sys

import jsonschema

schema = json.load(open(sys.argv[1]))
objects = [json.loads(line) for line in open(sys.argv[2])]
assert len(objects) >= 5 * 28
validator = jsonschema.Draft202012Validator(schema)
for thing in objects:
    validator.validate(thing)
PYTHON
