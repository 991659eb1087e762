#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# recipe_test.sh RECIPE BUILD: each file that Meson installs goes into the recipe's package of its tag.
# Variables in single quotes are the recipe's, others are read by `eval`, and values are patterns.
# shellcheck disable=SC2016,SC2034,SC2154,SC2254
set -euf

# As bitbake.conf has them, with a merged /usr.
PN=tavrisk SOLIBS='.so.*' prefix=/usr
bindir=/usr/bin libdir=/usr/lib libdir_shared=/usr/lib nonarch_libdir=/usr/lib libexecdir=/usr/libexec
datadir=/usr/share mandir=/usr/share/man systemd_system_unitdir=/usr/lib/systemd/system

# stated VARIABLE: what the recipe gives it, or adds to it.
stated() {
  words=$(sed -n ":a; /\\\\$/{N; s/\\\\\n//; ta;}; s/^$1 +\{0,1\}?\{0,1\}= \"\(.*\)\"$/\1/p" "$recipe")
  [ -n "$words" ] || { echo "nothing is stated of $1" >&2 && exit 1; }
  eval "echo \"$words\""
}

recipe=$1
embedded=$(stated 'FILES:${PN}-platform')
development=$(stated FILES_SOLIBSDEV)
# The classes and bitbake.conf give the daemon's package its programs, and any package pages and completions.
any='/usr/share/man /usr/share/bash-completion'
daemon=$(stated 'FILES:${PN}')
unit=$(stated 'SYSTEMD_SERVICE:${PN}')
daemon="$daemon /usr/bin/* $systemd_system_unitdir/$unit"

# package_of PATH: the first package that takes the file, or a directory that it is in.
package_of() {
  for package in embedded development any daemon; do
    eval "patterns=\$$package"
    for pattern in $patterns; do
      case $1 in $pattern | $pattern/*) echo $package && return ;; esac
    done
  done
  echo none
}

# Lines of where a file is installed, its tag, and the package that takes it.
taken() {
  jq -r '.[][] | "\(.tag) \(.destination | gsub("[{]"; "${"))"' "$1" | while read -r tag place; do
    eval "place=$place"
    case $place in
      /lib/*) place=/usr$place ;;
      /*) ;;
      *) place=/usr/$place ;;
    esac
    case $tag in
      app) tag=embedded ;;
      licence) tag=daemon ;;
    esac
    echo "$place, of $tag: in $(package_of "$place")"
  done
}
files=$(taken "$2/meson-info/intro-install_plan.json")
if echo "$files" | grep -vE ', of (.*): in (\1|any)$'; then exit 1; fi
[ "$(echo "$files" | wc -l)" -ge 20 ]
