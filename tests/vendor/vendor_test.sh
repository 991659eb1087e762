#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# vendor_test.sh SOURCE WORK LIBRARY...: scripts/vendor-check passes the three libraries that are given,
# and finds what is wrong with bad ones in their places.
set -eu
source=$1
work=$2
shift 2
failed=0

# make NAME OPTION...: a bad library in the place of a good one.
make() {
  file=$1
  shift
  ${CXX:-g++} -std=c++20 -shared -fPIC -o "$work/$file" -Wl,-soname,"$file" "$@" "$source/tests/vendor/bad.cpp" -pthread
}

# finds STATUS ROW...: what vendor-check must end with and print, blanks apart.
finds() {
  expected=$1
  shift
  status=0
  "$source/scripts/vendor-check" "$work" >"$work/table" || status=$?
  tr -s ' ' <"$work/table" >"$work/rows"
  for row in "status $expected" "$@"; do
    { echo "status $status" && cat "$work/rows"; } | grep -qE "^$row" && continue
    echo "expected, and not found: $row"
    failed=1
  done
  [ $failed = 0 ] || cat "$work/table"
}

rm -rf "$work"
mkdir -p "$work"
cp "$@" "$work"
finds 0 'ok all three calls at once .*store 0, submission 0' 'ok all three stack' \
  'ok all three threads it starts 0 when loaded, 0' 'ok all three logging after a fork 300 ' 'ok all three what'

make libwhelk.so.9 -DFAULTS=0 -DNAME_TAKEN
make libmosslink.so.9 -DFAULTS=0 -DMOSSLINK -DCALL_MISSING -Wl,-soname,libmosslink.so.8
rm "$work/libkelp.so"
finds 1 'FAILED libmosslink.so.9 name in it libmosslink.so.8' \
  'FAILED libmosslink.so.9 calls missing: MOSSLINKFreeTLVList$' \
  'FAILED libwhelk.so.9 names of others openlog' 'FAILED libkelp.so file'

cp "$@" "$work"
make libwhelk.so.9 -DFAULTS=16
make libmosslink.so.9 -DFAULTS=14 -DMOSSLINK
finds 1 'FAILED all three stack of a worker 4[0-9][0-9] KiB' 'note all three threads it starts 1 when loaded' \
  'FAILED all three logging after a fork child' 'FAILED all three what it changes changed: SIGURG$'

make libmosslink.so.9 -DFAULTS=1 -DMOSSLINK
finds 1 'FAILED all three calls at once ended with status 134'
exit $failed
