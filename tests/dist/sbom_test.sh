#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# sbom_test.sh SOURCE BUILD: the list of materials holds together and is of this tree, and always the same.
# Variables in single quotes are those of jq.
# shellcheck disable=SC2016
set -eu
export SOURCE_DATE_EPOCH=1795651200
list=$(mktemp)
trap 'rm "$list"' EXIT
"$1/scripts/sbom" "$2" >"$list"
"$1/scripts/sbom" "$2" | cmp - "$list"

# is WHAT CONDITION: a condition in jq that the list meets.
is() { jq -e "$2" "$list" >/dev/null || { echo "not so: $1" && exit 1; }; }

is 'each thing has a name of its own' '[.SPDXID, (.packages, .files)[].SPDXID] | length == (unique | length)'
is 'it is of the time that was told' '.creationInfo.created == "2026-11-26T00:00:00Z"'
is 'its name space is a UUID of version 5' '.documentNamespace
  | test("^urn:uuid:[0-9a-f]{8}-[0-9a-f]{4}-5[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$")'
is 'these libraries are linked' '[.packages[1:][].name] | sort == ["jsoncpp", "libcrypto", "libsystemd", "sqlite3"]'
is 'the program has these files and libraries' '.packages[0].SPDXID as $program
  | ([.relationships[] | [.[]] | join(" ")] | sort) == ([
    "\(.SPDXID) DESCRIBES \($program)",
    (.files[].SPDXID | "\($program) CONTAINS \(.)"),
    (.packages[1:][].SPDXID | "\($program) DEPENDS_ON \(.)")
  ] | sort)'
is 'sources of all its parts are there' '[.files[].fileName] as $names
  | ["daemon/service/main.cpp", "platform/kelp/kelp.cpp", "zel/store.cpp"] | map("./src/" + .) - $names == []'
is 'no tests are there' 'all(.files[].fileName; test("^./(tests|samples)/") | not)'
is 'each file states the licence' 'all(.files[].licenseConcluded; . == "Apache-2.0")'
jq -r '.files[] | .checksums[] as $sum | "\($sum.algorithm) (\(.fileName)) = \($sum.checksumValue)"' "$list" |
  (cd "$1" && cksum --check --quiet)
