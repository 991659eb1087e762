# SPDX-License-Identifier: Apache-2.0
# A daemon on a bus of its own in scripts/world, for those who show it; sourced by them.
# shellcheck shell=sh

# What is shown is there soon: nothing that is only for later, and nothing that takes time.
build_to_show() { build demo -Dbuildtype=plain -Doptimization=0 -Dunity=on -Dunity_size=99; }

# wait_until COMMAND...: true as soon as the command succeeds, false when it does not within 10 s.
wait_until() {
  deadline=$(($(date +%s) + 10))
  until "$@" >/dev/null 2>&1; do
    [ "$(date +%s)" -lt "$deadline" ] || return 1
    sleep 0.05
  done
}

# start_world BUILD: bus, syslog and daemon, and the tools of that build on the PATH.
start_world() {
  PATH=$1:$1/src/tools/tavriskctl:$1/src/tools/zelctl:$PATH
  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/run/private-bus
  ln -s "$1/src/platform/retention/tavrisk-retention" /app/bin/wuxRetensionChk.sh
  cat >/run/bus.conf <<CONF
<busconfig>
  <listen>unix:path=/run/private-bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
CONF
  busybox syslogd -n -O /run/syslog &
  dbus-daemon --config-file=/run/bus.conf --nofork --nopidfile 2>/run/bus.log &
  wait_until test -S /run/private-bus || die "the private bus did not start"
  # The bus of whoever started this, and the system's, stay out of it.
  DBUS_STARTER_ADDRESS=unix:path=/run/private-bus tavrisk 2>/run/tavrisk.log &
  # shellcheck disable=SC2034 # for who sources this
  daemon=$!
  wait_until tavriskctl --timeout=2 status || die "the daemon did not start"
}
