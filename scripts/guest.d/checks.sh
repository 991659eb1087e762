#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs in the guest, as root: tries what needs a real machine, and prints a line for each check:
# result, name and remark, with tabs between them.
set -u
cd /checks/samples || exit 1

unit=tavrisk.service
name=com.vorn.bmc.tavrisk
tree=/run/hmc

# check NAME COMMAND...: the command's last line of output is the remark.
check() {
  what=$1
  shift
  if remark=$("$@" 2>&1); then result=ok; else result=FAILED; fi
  printf '%s\t%s\t%s\n' "$result" "$what" "$(printf %s "$remark" | tail -n 1 | tr '\t' ' ')"
}

# eventually COMMAND...: true as soon as the command succeeds, false when it does not for a while.
eventually() {
  tries=150
  until "$@" >/dev/null 2>&1; do
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || return 1
    sleep 0.2
  done
}

as() {
  user=$1
  shift
  runuser -u "$user" -- "$@"
}

# fails_with STATUS COMMAND...
fails_with() {
  expected=$1
  shift
  "$@"
  status=$?
  [ "$status" = "$expected" ] || { echo "status $status" && return 1; }
}

# Never 0, which kill(1) takes for everybody.
main_pid() { systemctl show -P MainPID "$unit" | sed 's/^0$/none/'; }
is_active() { systemctl -q is-active "$unit"; }
owner_pid() { busctl status "$name" | sed -n 's/^PID=//p'; }
entries() { zelctl stats --json | sed 's/.*"entries":\([0-9]*\).*/\1/'; }
has_entry() { [ -n "$(zelctl list --json --limit 1 "$@")" ]; }
is_without() { [ -z "$(find "$1" -maxdepth 1 -type f)" ]; }

# The unit

starts_at_boot() {
  is_active && [ "$(owner_pid)" = "$(main_pid)" ] || return 1
  echo "as user $(stat -c %U "/proc/$(main_pid)"), $(systemctl show -P MemoryCurrent "$unit") bytes of memory"
}

is_activated_by_a_call() {
  systemctl stop "$unit" && ! is_active && as member tavriskctl log events/not-reported-severity-ok.json &&
    is_active
}

has_its_directories() {
  for expected in "tavrisk hmc 750 $tree" "tavrisk hmc 750 $tree/dump" \
    "tavrisk hmc 750 $tree/rawCPER" "tavrisk hmc 750 /mmc1/hmc" \
    "tavrisk tavrisk 750 /var/lib/tavrisk" "tavrisk tavrisk 750 /var/log/tavrisk"; do
    found=$(stat -c '%U %G %a %n' "${expected##* }")
    [ "$found" = "$expected" ] || { echo "$found" && return 1; }
  done
  echo "all 0750 and the daemon's own"
}

is_secure() {
  line=$(systemd-analyze security --no-pager "$unit" | sed -n 's/.*Overall exposure level[^:]*: //p')
  echo "${line% *}"
  [ "$(echo "$line" | sed 's/\([0-9]*\)\.\([0-9]\).*/\1\2/')" -le 15 ]
}

is_verified() {
  complaints=$(systemd-analyze verify "$unit" 2>&1)
  echo "${complaints:-no complaints}"
  [ -z "$complaints" ]
}

# Its work

takes_an_event() {
  as member tavriskctl log events/event6-above-upper-critical.json && eventually has_entry --id HMC0006 &&
    zelctl list --id HMC0006
}

takes_a_cper() {
  as member tavriskctl cper cper/memory-error.cper && eventually has_entry --id HMC0002 &&
    ! is_without "$tree/rawCPER" && zelctl list --id HMC0002
}

keeps_data() {
  as member tavriskctl save kept README.md && cmp README.md "$tree/dump/kept" &&
    stat -c '%A %U:%G' "$tree/dump/kept"
}

saves_and_clears() {
  as member tavriskctl clear &&
    for directory in "$tree" "$tree/dump" "$tree/rawCPER"; do is_without "$directory" || return 1; done &&
    cmp README.md /mmc1/hmc/dump/kept && ! is_without /mmc1/hmc && ! is_without /mmc1/hmc/rawCPER &&
    echo "$(find /mmc1/hmc -type f | wc -l) files in /mmc1/hmc"
}

is_within_limit() { [ "$(du -sb "$tree/dump" | cut -f 1)" -le $((10485760 + 4096)) ]; }

polices_the_tree() {
  for file in 1 2 3 4 5 6 7 8 9 10 11 12; do
    runuser -u tavrisk -- truncate -s 1M "$tree/dump/$file"
  done
  ! is_within_limit && systemctl restart "$unit" && eventually is_within_limit &&
    echo "$(find "$tree/dump" -type f | wc -l) of 12 files of 1 MiB left"
}

# Files count as the unit's memory, and thirty of 16 MiB would be too much of it.
is_full_and_lives() {
  pid=$(main_pid)
  head -c 16777216 /dev/zero >/tmp/record
  refused=0
  for number in $(seq 30); do
    as member tavriskctl save "full$number" /tmp/record >/dev/null 2>&1 || refused=$((refused + 1))
  done
  rm /tmp/record
  used=$(df --output=used -m "$tree" | tail -n 1)
  find "$tree/dump" -name 'full*' -delete
  echo "$refused of 30 refused,$used MiB kept, $(findmnt -n -o OPTIONS "$tree" | tr , '\n' | grep size)"
  [ "$refused" -ge 10 ] && [ "$(main_pid)" = "$pid" ] && is_active
}

writes_to_the_journal() {
  journalctl --sync
  lines=$(journalctl -q -o cat -u "$unit" -t tavrisk | wc -l)
  journalctl -q -o cat -u "$unit" -t tavrisk | grep -q 'checkRedfishData: Critical parsing JSON' &&
    echo "$lines lines"
}

# Its device has a name that is too long for the event log.
counts_a_lost_event() {
  sed "s/GPU_3_TEMP_0/$(seq -s - 400)/" events/event6-above-upper-critical.json >/tmp/refused.json
  as member tavriskctl log /tmp/refused.json && eventually tells_of_a_lost_event &&
    tavriskctl status | grep '^lost events'
}
tells_of_a_lost_event() { tavriskctl status | grep -q '^  refused by the event log  1$'; }

# The timer is not enabled until somebody wants the figures, and the unit is as strict as it is written.
writes_figures() {
  figures=/var/lib/prometheus/node-exporter
  systemctl -q is-enabled tavrisk-metrics.timer && return 1
  mkdir -p "$figures" && systemctl start tavrisk-metrics.service &&
    systemctl enable -q --now tavrisk-metrics.timer && systemctl -q is-active tavrisk-metrics.timer &&
    grep -qx 'tavrisk_up 1' "$figures/tavrisk.prom" &&
    grep -qx 'tavrisk_zel_readable 1' "$figures/tavrisk-zel.prom" || return 1
  systemctl -q disable --now tavrisk-metrics.timer
  # One that cannot write keeps nothing from the other.
  rm "$figures"/*.prom && mkdir "$figures/tavrisk.prom" && ! systemctl start tavrisk-metrics.service 2>/dev/null &&
    [ -s "$figures/tavrisk-zel.prom" ] && rmdir "$figures/tavrisk.prom" && systemctl reset-failed &&
    systemctl start tavrisk-metrics.service || return 1
  stat -c '%A %n' "$figures"/* | tr '\n' ' '
  systemd-analyze security --no-pager tavrisk-metrics.service | sed -n 's/.*Overall exposure level[^:]*: //p'
  systemd-analyze verify tavrisk-metrics.timer 2>&1 | grep . && return 1
  [ "$(find "$figures" -type f | wc -l)" = 2 ] && rm -r "$figures"
}

# Who may what

shows_itself_to_all() {
  as outsider tavriskctl status | grep RetentionSizeInMB && as outsider busctl introspect "$name" \
    /com/vorn/bmc/tavrisk | grep -q SaveAndClearCache
}

refuses() {
  user=$1
  shift
  fails_with 1 as "$user" tavriskctl "$@"
}

obeys_root() {
  tavriskctl set SystemLEDSetting Enabled && tavriskctl status | grep 'SystemLEDSetting.*Enabled'
}

keeps_its_name() {
  refused=$(as outsider busctl call org.freedesktop.DBus / org.freedesktop.DBus RequestName su \
    "$name" 3 2>&1) && return 1
  echo "$refused"
}

# Hostile names

save_reaches() {
  as member tavriskctl save "../../../../../..$1" README.md
}

# Every directory, and what a user may write in a few; none of them may be reached.
names_stay_inside() {
  count=0
  pid=$(main_pid)
  for target in /new /etc/new /usr/new /app/bin/wuxRetensionChk.sh /home/new /root/new /opt/new \
    /run/new /run/lock/new /run/user/new /run/systemd/new /tmp/new /var/tmp/new /var/new \
    /var/lib/new /var/log/new /mmc1/new /dev/new /dev/shm/new /dev/mqueue/new /sys/new \
    /sys/fs/cgroup/new /proc/self/comm /proc/self/oom_score_adj "/proc/$pid/comm" \
    /proc/self/task/self/comm /proc/self/fd/1 /proc/sys/kernel/core_pattern; do
    ! save_reaches "$target" >/dev/null 2>&1 || { echo "$target was written" && return 1; }
    count=$((count + 1))
  done
  # It could have been written.
  save_reaches /run/hmc/dump/inside >/dev/null && [ -f "$tree/dump/inside" ] &&
    echo "$count places refused"
}

# As the daemon sees the machine, with its user's rights.
only_named_is_writable() {
  found=$(nsenter --target "$(main_pid)" --mount -- setpriv --reuid=tavrisk --regid=tavrisk \
    --clear-groups find / -regex '/proc/[0-9]+' -prune -o \( -type d -o -type f -o -type p \) \
    -writable -print 2>/dev/null |
    grep -vE '^(/run/hmc|/mmc1/hmc|/var/lib/tavrisk|/var/log/tavrisk)(/|$)')
  echo "${found:-all else is read-only or hidden}"
  [ -z "$found" ]
}

# Its ends

has_come_back_since() { [ "$(main_pid)" != "$1" ] && is_active; }

survives_a_kill() {
  pid=$(main_pid)
  before=$(entries)
  kill -KILL "$pid"
  eventually has_come_back_since "$pid" && [ "$(entries)" = "$before" ] && [ "$before" -gt 0 ] &&
    echo "$before entries before and after"
}

has_entries() { [ "$(entries)" = "$1" ]; }

# Fifty events wait for an event log that another holds, until after the daemon has stopped; the next
# start's first event brings them in.
loses_nothing_at_a_stop() {
  before=$(entries)
  mkfifo /run/hold
  sqlite3 /var/lib/tavrisk/zel.db </run/hold &
  exec 9>/run/hold
  echo 'BEGIN IMMEDIATE;' >&9
  sleep 1
  # shellcheck disable=SC2046 # a list of files
  tavriskctl log $(yes events/event6-above-upper-critical.json | head -n 50) >/dev/null
  held=$(entries)
  started=$(date +%s)
  systemctl stop "$unit"
  took=$(($(date +%s) - started))
  exec 9>&-
  wait
  rm /run/hold
  systemctl start "$unit"
  tavriskctl log events/event6-above-upper-critical.json >/dev/null
  if [ "$held" != "$before" ]; then
    echo "the event log was not held" && return 1
  fi
  eventually has_entries $((before + 51)) || { echo "$(($(entries) - before)) of 51 events kept" && return 1; }
  echo "50 of 50 events kept, stopping took $took s"
  [ "$took" -lt 20 ]
}

# Each call with a directory missing is a failed pass of the bus loop; the tenth is the last.
comes_back_after_255() {
  pid=$(main_pid)
  rm -rf "$tree/rawCPER"
  for _ in 1 2 3 4 5 6 7 8 9 10; do
    tavriskctl --timeout=0.1 clear
  done
  eventually has_come_back_since "$pid" || eventually has_come_back_since "$pid" || return 1
  journalctl --sync
  journalctl -q -o cat -u "$unit" | grep 'status=255' && [ -d "$tree/rawCPER" ]
}

has_given_up() { [ "$(systemctl show -P Result "$unit")" = start-limit-hit ] || systemctl -q is-failed "$unit"; }

does_not_storm() {
  mkdir -p "/run/systemd/system/$unit.d"
  printf '[Service]\nExecStart=\nExecStart=/bin/sh -c "exit 255"\n' >"/run/systemd/system/$unit.d/255.conf"
  systemctl daemon-reload
  systemctl reset-failed "$unit"
  systemctl restart --no-block "$unit"
  started=$(date +%s)
  eventually has_given_up || return 1
  restarts=$(systemctl show -P NRestarts "$unit")
  echo "$restarts restarts in $(($(date +%s) - started)) s, then none"
  sleep 5
  again=$(systemctl show -P NRestarts "$unit")
  rm -r "/run/systemd/system/$unit.d"
  systemctl daemon-reload
  systemctl reset-failed "$unit"
  systemctl start "$unit" && [ "$again" = "$restarts" ] && [ "$restarts" -le 5 ]
}

nothing_has_failed() {
  failed=$(systemctl list-units --failed --plain --no-legend | cut -d ' ' -f 1)
  echo "${failed:-$(systemctl is-system-running)}"
  [ -z "$failed" ]
}

# What the documents say

# documented FILE HEADING [LEFT-OUT]: runs the blocks of shell commands in a document's chapters, one after
# the other; not those with what must be left out here.
documented() {
  rm -rf /run/documented
  mkdir /run/documented
  awk -v heading="$2" '
    /^```/ { inside = here && $0 == "```sh"; if (inside) block++; next }
    inside { sub(/^\.\/scripts\/package$/, ":"); print >("/run/documented/" sprintf("%02d", block)); next }
    /^#+ / { here = $0 ~ heading }' "/checks/$1"
  if [ -n "${3-}" ]; then grep -lE "$3" /run/documented/* | xargs rm; fi
  # shellcheck disable=SC2016 # expanded by the inner shell
  timeout 300 sh -euc '. /checks/documented.sh
    cd /checks
    for block; do head -n 1 "$block" >/run/begun && . "$block"; done' sh /run/documented/* \
    >/run/output 2>&1 </dev/null ||
    { echo "status $?: $(cat /run/begun): $(tail -n 1 /run/output)" && return 1; }
  echo "$(find /run/documented -type f | wc -l) blocks of commands"
}

# How packages come and go

is_installed() { is_active && systemctl -q is-enabled "$unit" && eventually takes_the_first_event; }
takes_the_first_event() { tavriskctl log events/event6-above-upper-critical.json && has_entry --id HMC0006; }

# What there is of it but for data; the documents in /checks are not its own.
files_of_it() {
  find / -xdev -path /checks -prune -o -print | grep -E \
    '/([^/]*tavrisk|com\.vorn|run-hmc|zelctl|libmosslink|libkelp|libwhelk|app$|wuxRet)[^/]*$' |
    grep -vE '^/var/((lib|log)/tavrisk$|cache/man/)'
}
files_of_data() { find /mmc1/hmc "$tree" -type f | wc -l; }

leaves_log_and_data() {
  before=$(files_of_it | wc -l)
  data=$(files_of_data)
  documented README.md "$1" || return 1
  left=$(files_of_it | tr '\n' ' ')
  echo "${left:-the log and $data files of data left, $before others gone}"
  # One that was taken for damaged before is a log too.
  [ -z "$left" ] && ! is_active && [ -n "$(find /var/lib/tavrisk -name zel.db -size +0)" ] &&
    [ "$(files_of_data)" = "$data" ]
}

# As if it had never been here.
forget() {
  userdel tavrisk
  groupdel -f hmc
  if mountpoint -q "$tree"; then umount "$tree"; fi
  rm -rf /var/lib/tavrisk /var/log/tavrisk /mmc1 /app
  systemctl reset-failed 2>/dev/null
  systemctl daemon-reload
}

installs() {
  forget
  documented README.md "$1" && is_installed && zelctl list --limit 1
}

own_test() (cd /checks && debian/tests/an-event-goes-its-road)

keeps_the_log_at_an_upgrade() {
  before=$(entries)
  pid=$(main_pid)
  apt-get -q -y install /checks/next/*.deb && is_active && [ "$(main_pid)" != "$pid" ] || return 1
  echo "$(dpkg-query -W -f '${Version}' tavrisk), $before entries before and after"
  [ "$before" -gt 0 ] && [ "$(entries)" = "$before" ]
}

check "The machine is up, all units in order" nothing_has_failed
check "Users and directories are made at boot" has_its_directories
check "The unit starts at boot and owns the name" starts_at_boot
check "systemd-analyze security" is_secure
check "systemd-analyze verify" is_verified
check "A first call starts it" is_activated_by_a_call
check "An event goes in and comes out of the event log" takes_an_event
check "A CPER goes in and comes out of the event log" takes_a_cper
check "Data is kept" keeps_data
check "SaveAndClearCache saves and clears" saves_and_clears
check "The retention program keeps the tree in limits" polices_the_tree
check "A full tree is refused, and the daemon lives" is_full_and_lives
check "Its lines are in the journal" writes_to_the_journal
check "A lost event is counted from the journal" counts_a_lost_event
check "Figures for Prometheus are written when wanted" writes_figures
check "Everyone may look" shows_itself_to_all
check "Log: refused outside the group" refuses outsider log events/event6-above-upper-critical.json
check "Save: refused outside the group" refuses outsider save x README.md
check "SaveAndClearCache: refused outside the group" refuses outsider clear
check "Setting a property: refused outside the group" refuses outsider set SystemLEDSetting x
check "Setting a property: refused inside the group" refuses member set SystemLEDSetting x
check "Setting a property: root may" obeys_root
check "The name: refused to others" keeps_its_name
check "Names that climb out of the tree write nowhere" names_stay_inside
check "Nothing but the named directories is writable" only_named_is_writable
check "Killed, it comes back with its entries" survives_a_kill
check "Stopped, it loses no event that it has taken" loses_nothing_at_a_stop
check "Ended with 255, it comes back" comes_back_after_255
check "Ending with 255 at every start, it is left alone" does_not_storm
check "All units in order so far" nothing_has_failed
check "Commands of README work" documented README.md '^## D-Bus'
check "Commands of docs/dbus-api.md work" documented docs/dbus-api.md .
check "Commands of docs/operations.md work" documented docs/operations.md . 'vendor|journal-upload'
check "Removed, it leaves log and data" leaves_log_and_data '^### Remove the packages'
check "Installed from its packages, it runs" installs '^### Install the packages'
check "The packages' own test passes" own_test
check "An upgrade keeps the log" keeps_the_log_at_an_upgrade
check "Removed again, it leaves log and data" leaves_log_and_data '^### Remove the packages'
check "Installed from source below /usr/local, it runs" installs '^### Install from source'
check "Removed from there, it leaves log and data" leaves_log_and_data '^### Remove what came'
check "All units in order at the end" nothing_has_failed
echo end
