#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The committed CPERs are what their generator makes.
# usage: committed.sh DIRECTORY MAKE_CPER...
set -eu
committed=$1
shift
made=$(mktemp -d)
trap 'rm -r "$made"' EXIT
"$@" "$made"
diff -r "$made" "$committed"
