# SPDX-License-Identifier: Apache-2.0
# What the scripts share; sourced by them. Sets `root`, the source tree.
# shellcheck shell=sh

root=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)

die() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

# as_root COMMAND...: runs it as root, where that can be had.
as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null && { sudo -n true 2>/dev/null || [ -t 0 ]; }; then
    sudo "$@"
  else
    return 126
  fi
}

# need PACKAGE...: installs those of the Debian packages that are missing; PACKAGE:ARCHITECTURE is one
# for another machine.
need() {
  missing=
  for package; do
    # Of a library there may be one for another machine as well.
    case $package in *:*) wanted=${package#*:} ;; *) wanted=$(dpkg --print-architecture) ;; esac
    dpkg-query -W -f '${Architecture} ${db:Status-Status}\n' "$package" 2>/dev/null |
      grep -qxE "($wanted|all) installed" || missing="$missing $package"
  done
  [ -n "$missing" ] || return 0

  if ! command -v apt-get >/dev/null; then
    die "these programs and libraries are missing, and there is no apt-get to install them:$missing"
  elif ! as_root true; then
    die "these packages are missing; install them, or run this as root or where sudo works:$missing"
  fi
  echo "Installing:$missing"
  for architecture in $(printf '%s\n' "$@" | sed -n 's/.*://p' | sort -u); do
    as_root dpkg --add-architecture "$architecture"
  done
  # shellcheck disable=SC2086 # lists of words
  if ! { as_root apt-get update -qq &&
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -qq -y --no-install-recommends \
      $missing; } >"${TMPDIR:-/tmp}/tavrisk-install.$$" 2>&1; then
    cat "${TMPDIR:-/tmp}/tavrisk-install.$$" >&2
    die "installing failed:$missing"
  fi
  rm -f "${TMPDIR:-/tmp}/tavrisk-install.$$"
}

# The libraries of every build, on this machine or, with an argument like ":arm64", on another.
libraries() { printf "%s$1 " libjsoncpp-dev libsqlite3-dev libssl-dev libsystemd-dev; }

# What every build needs, and what the private bus does.
need_build() {
  # shellcheck disable=SC2046 # names of packages
  need g++ $(libraries '') meson ninja-build pkg-config dbus-daemon util-linux "$@"
}

# Prometheus' programs, below build/prometheus: installed, their packages would start services.
need_prometheus() {
  programs=$root/build/prometheus/usr/bin
  if [ -x "$programs/promtool" ] && [ -x "$programs/prometheus-node-exporter" ]; then return 0; fi
  need apt
  mkdir -p "$root/build/prometheus"
  (
    cd "$root/build/prometheus" || exit
    rm -f -- *.deb
    apt-get download -qq prometheus prometheus-node-exporter 2>/dev/null ||
      { as_root apt-get update -qq && apt-get download -qq prometheus prometheus-node-exporter; } ||
      exit
    for package in *.deb; do dpkg -x "$package" . || exit; done
  ) || die "promtool and prometheus-node-exporter were not to be had"
}

# A browser, which some have from elsewhere.
need_chromium() { command -v chromium >/dev/null || need chromium; }

# show_progress LOG: how far ninja is by its log, over and over in one line of a terminal.
show_progress() {
  while sleep 0.5; do
    printf '\r  %s ' "$(tail -c 4096 "$1" | grep -ao '^\[[0-9]*/[0-9]*\]' | tail -n 1)"
  done
}

# compile DIRECTORY LOG TARGET...: builds, through the command in `politely` if that is set.
compile() {
  directory=$1
  log=$2
  shift 2
  : >"$log"
  progress=
  if [ -t 1 ]; then
    show_progress "$log" &
    progress=$!
  fi
  status=0
  ${politely-} ninja -C "$directory" "$@" >"$log" 2>&1 || status=$?
  [ -z "$progress" ] || { kill "$progress" && printf '\r                    \r'; }
  [ $status = 0 ] || { cat "$log" >&2 && die "building failed"; }
}

# build DIRECTORY OPTION...: configures a build directory below build/ once, and builds it, or only what is
# named in `targets`.
build() {
  directory=$root/build/$1
  shift
  log=$directory.log
  mkdir -p "$root/build"
  if [ ! -f "$directory/build.ninja" ]; then
    meson setup "$directory" "$root" "$@" >"$log" 2>&1 || { cat "$log" >&2 && die "configuring failed"; }
  fi
  echo "Building in ${directory#"$root/"}"
  # shellcheck disable=SC2086 # a list of words
  compile "$directory" "$log" ${targets-}
}

# Says at once when private namespaces are not to be had.
need_world() {
  "$root/scripts/world" true || exit 1
}
