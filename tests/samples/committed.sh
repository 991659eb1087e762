#!/bin/sh
# The committed CPERs are what their generator makes.
# usage: committed.sh MAKE_CPER DIRECTORY
set -eu
made=$(mktemp -d)
trap 'rm -r "$made"' EXIT
"$1" "$made"
diff -r "$made" "$2"
