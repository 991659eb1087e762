#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The committed message registry is what is made of the catalogue.
# usage: registry_test.sh REGISTRY MAKE_REGISTRY...
# With UPDATE=1 it is written anew.
set -eu
committed=$1
shift
made=$(mktemp)
trap 'rm "$made"' EXIT
"$@" | jq -S . >"$made"
[ -z "${UPDATE-}" ] || cp "$made" "$committed"
diff "$committed" "$made"
