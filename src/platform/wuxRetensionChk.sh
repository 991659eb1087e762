#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# Keeps tavrisk's data within limits. Called by the daemon; the misspelt name is what it calls.
#
#   wuxRetensionChk.sh DIR SIZE_MB   removes the oldest files in DIR until what is left of them is
#                                    SIZE_MB * 1048576 bytes or less
#   wuxRetensionChk.sh cache         saves the data cache to persistent storage
#
# Files are regular files directly in a directory, with names that do not begin with a dot: what
# `rm -f *` removes when the daemon clears the cache after a save.
#
# Exit status: 0 done, 1 not done or only in part, 2 wrong arguments.
#
# For any POSIX shell with the usual tools, coreutils' and findutils' or busybox's. Peers choose the
# names of files and may put any character into them, so no name ever is text that is read: it goes
# from find to a program as it is, and in lists a file stands under its inode number. The cache is a
# tmpfs, which gives no number out twice.

set -u
export LC_ALL=C TZ=UTC0

cache=/var/run/hmc
store=/mmc1/hmc
# The most that is kept in each of the store's three directories. Twice what the greatest retention
# size leaves in one of the cache, so that there is always room for a save and some history.
store_limit_mb=200

usage() {
  echo "usage: ${0##*/} DIR SIZE_MB | cache" >&2
  exit 2
}

fail() {
  echo "${0##*/}: $1" >&2
  exit 1
}

# The files of the working directory, for the given actions of find.
files() {
  find . -maxdepth 1 -type f ! -name '.*' "$@"
}

# Inode number and size of each file of the working directory, the oldest first. A file that
# vanishes meanwhile is left out.
list() {
  files -exec stat -c '%i %s %y' {} + 2>/dev/null | sort -k 3 -k 1,1n
}

# The files that have to go from the working directory for a limit of $1 MB, as conditions for find,
# some a line. Those whose inode numbers are in $2 stay.
excess() {
  { printf '%s\n' "$2" && list; } | awk -v limit="$1" '
    NF == 1 { kept[$1] }
    NF > 1 && !($1 in size) { inode[++count] = $1; size[$1] = $2; total += $2 }
    END {
      for (i = 1; i <= count && total > limit * 1048576; i++) {
        if (inode[i] in kept) continue
        total -= size[inode[i]]
        printf "%s-inum %s", doomed % 200 ? " -o " : doomed ? "\n" : "", inode[i]
        doomed++
      }
    }'
}

# Brings the working directory within $1 MB without the files that are in $2. Files may come and go
# meanwhile, so it looks again.
trim() {
  attempts=0
  while doomed=$(excess "$1" "$2") && [ -n "$doomed" ]; do
    attempts=$((attempts + 1))
    [ "$attempts" -le 3 ] || return 1
    printf '%s\n' "$doomed" | while read -r conditions; do
      # shellcheck disable=SC2086 # words, all of our own making
      files \( $conditions \) -exec rm -f {} +
    done
  done
}

# Copies the files of the working directory to $1. One that vanishes meanwhile needs no saving.
copy() {
  files -exec cp -p -t "$1" {} + && return
  for file in *; do
    if [ -f "./$file" ] && ! cmp -s "./$file" "$1/$file" && [ -e "./$file" ]; then
      return 1
    fi
  done
}

# Saves directory $1 of the cache. A copy is complete and on the medium before it takes its name, so
# that at any time the store holds the old or the new copy of a file. Older copies make room, never
# those just made: the clock may have been set back.
save() (
  stage=$store/$1/.saving.$$
  mkdir -p "$stage" && cd "$cache/$1" || exit 1
  # They would be cleared but cannot be saved.
  [ -z "$(find . -maxdepth 1 ! -name '.*' ! -type f ! -type d)" ] || exit 1
  copy "$stage" && cd "$stage" || exit 1
  list | awk -v limit="$store_limit_mb" '
    { total += $2 }
    END { exit total > limit * 1048576 }' || exit 1
  saved=$(list | cut -d ' ' -f 1) &&
    sync -f . &&
    files -exec mv -f -t "$store/$1" {} + &&
    cd "$store/$1" &&
    sync -f . &&
    trim "$store_limit_mb" "$saved"
)

# Also of a run that was killed.
remove_temporaries() {
  rm -rf "$store"/.saving.* "$store"/dump/.saving.* "$store"/rawCPER/.saving.*
}

case $# in
  1) [ "$1" = cache ] || usage ;;
  2)
    [ -n "$1" ] || usage
    # Not every awk takes a number with leading zeros for decimal.
    case $2 in '' | *[!0-9]* | 0?*) usage ;; esac
    ;;
  *) usage ;;
esac

# A tool that is missing would look like an empty directory.
for tool in awk cmp cp cut find mv rm sort stat sync; do
  command -v "$tool" >/dev/null || fail "$tool is missing"
done

if [ $# -eq 2 ]; then
  case $1 in /*) directory=$1 ;; *) directory=./$1 ;; esac
  cd "$directory" || exit 1
  trim "$2" '' || fail "$1 is still larger than $2 MB"
  exit 0
fi

[ -d "$store" ] || mkdir "$store" || exit 1
trap remove_temporaries EXIT
trap 'exit 1' HUP INT TERM
remove_temporaries
for directory in . dump rawCPER; do
  if [ "$directory" = . ] || [ -d "$cache/$directory" ]; then
    save "$directory" || fail "not everything in $cache/$directory could be saved"
  fi
done
