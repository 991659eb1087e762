# SPDX-License-Identifier: Apache-2.0
# What commands of the documents need in the guest; sourced by their shells. What is to be built was
# built before, and what never ends is ended.
# shellcheck shell=sh

STATE_DIRECTORY=/run
export STATE_DIRECTORY

endless() { timeout 5 "$@" || [ $? = 124 ]; }
zelctl() { if [ "$1" = follow ]; then endless zelctl "$@"; else command zelctl "$@"; fi; }
tavriskctl() { if [ "$1" = monitor ]; then endless tavriskctl "$@"; else command tavriskctl "$@"; fi; }
busctl() { case "$*" in *monitor*) endless busctl "$@" ;; *) command busctl "$@" ;; esac; }

apt() { apt-get -q -y "$@"; }
# /lib is a link there.
meson() { [ "$1" = setup ] || (cd /checks/installed && tar -c .) | tar -C / -x --keep-directory-symlink; }
ninja() {
  (cd /checks/installed && find . ! -type d) | (cd / && xargs rm)
  (cd /checks/installed && find . -depth -mindepth 1 -type d) |
    (cd / && xargs rmdir --ignore-fail-on-non-empty 2>/dev/null) || true
}
