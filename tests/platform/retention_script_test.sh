#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Tests the retention script: retention_script_test.sh SCRIPT dash|busybox, in a private world.
set -u
export LC_ALL=C
script=$1 shell=$(command -v "$2") tools=/bin:/usr/bin cache=/run/hmc store=/mmc1/hmc failures=0
if [ "$2" = busybox ]; then
  mkdir /run/busybox && busybox --install -s /run/busybox
  tools=/run/busybox shell="$shell sh"
fi

# A file of the cache, or anywhere. The name may hold printf's escapes; the age, in days, also is
# what the file begins with.
file() { # AGE KB NAME
  # shellcheck disable=SC2059
  case $3 in /*) name=$3 ;; *) name=$(printf "$cache/$3") ;; esac
  mkdir -p "${name%/*}" && printf '%s' "$1" >"$name" && truncate -s "$2k" "$name" &&
    touch -d "@$((1700000000 - 86400 * $1))" "$name"
}

# Puts commands before what a tool does.
fake() { # TOOL COMMANDS
  printf '#!/bin/sh\n%s\nPATH=%s; exec %s "$@"\n' "$2" "$tools" "$1" >"/run/fake/$1"
  chmod +x "/run/fake/$1"
}

show() {
  for file in .[!.]* * dump/.[!.]* dump/*; do
    case $file in
      dump | rawCPER) ;;
      *) [ ! -e "$file" ] || printf ' %s=%s' "$file" "$(head -c 9 "./$file" | tr -d '\0')" ;;
    esac
  done
}

# Each row: what to set up, the arguments, and the exit status with what is in DIR or the store.
# Age 1 is the youngest.
while IFS='|' read -r setup arguments expected; do
  rm -rf /run/fake "$cache" "$store"
  mkdir -p /run/fake "$cache/dump" "$cache/rawCPER" "$store"
  mount -t tmpfs -o size=64k tmpfs "$store"
  eval "$setup"
  eval "env -i HOME=/ PATH=/run/fake:$tools $shell '$script' $arguments" >/run/output 2>&1
  status=$?
  if [ "$arguments" = cache ]; then cd "$store"; else cd "$cache"; fi || exit
  actual=$status$(grep -o ^usage /run/output)$(show)
  # shellcheck disable=SC2059
  if [ "$actual" != "$(printf "$expected")" ]; then
    failures=$((failures + 1))
    printf 'FAILED: %s: %s\n  expected: %s\n  actual: %s\n' "$setup" "$arguments" "$expected" "$actual"
  fi
  cd / && umount "$store"
done <<'END'
file 2 1024 a; file 1 1024 b|$cache/ 2|0 a=2 b=1
file 2 1 a; file 1 2048 b|$cache/ 2|0 b=1
file 2 1024 a; file 1 1025 b|$cache 1|0
file 3 512 -rf; file 4 512 'n\nl'; file 2 1024 'x y\n1 2 3'; file 1 1 b|$cache 1|0 b=1
file 2 1024 'a\nb'; file 1 1024 -rf; file 3 1024 '*'|$cache 2|0 -rf=1 a\nb=2
file 2 1024 a; file 9 4096 .old; file 8 4096 dump/d; file 1 2048 b|$cache 2|0 .old=9 b=1 dump/d=8
file 9 4096 /run/target; ln -s /run/target $cache/l; file 1 1 b|$cache 0|0 l=9
file 3 2048 gone; file 2 1024 a; file 1 1024 b; fake stat 'rm -f gone'|$cache 1|0 b=1
file 2 2048 a; fake rm 'exit 1'|$cache 1|1 a=2
file 1 1 a|/run/missing 1|1 a=1
file 1 1 a||2usage a=1
file 1 1 a|$cache|2usage a=1
file 1 1 a|"" 0|2usage a=1
file 1 1 a|$cache ""|2usage a=1
file 1 1 a|$cache 5M|2usage a=1
file 1 1 a|$cache 05|2usage a=1
file 1 1 a|$cache 5 5|2usage a=1
file 1 1 $store/a; file 2 1 a; file 3 1 'n\nl'; file 4 1 dump/d|cache|0 a=2 n\nl=3 dump/d=4
file 1 1 $store/dump/.saving.1/d; file 2 1 gone; file 3 1 d; fake cp 'rm -f gone'|cache|0 d=3
file 0 204798 $store/a; file 1 1 $store/b; file 8 1 $store/c; file 9 1 d|cache|0 a=0 b=1 d=9
file 1 1 $store/dump/d; file 2 1 dump/d; head -c 99999 /dev/urandom >$cache/dump/e|cache|1 dump/d=1
file 1 1 $store/dump/d; file 2 1 dump/d; fake sync 'exit 1'|cache|1 dump/d=1
file 1 1 $store/dump/d; file 2 1 dump/d; fake cp 'exit 1'|cache|1 dump/d=1
file 1 1 $store/dump/d; file 2 1 dump/d; fake mv 'exit 1'|cache|1 dump/d=1
file 1 1 $store/dump/d; file 2 1 dump/d; ln -s d $cache/dump/l|cache|1 dump/d=1
END
[ "$failures" -eq 0 ]
