#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# metrics_test.sh SOURCE BUILD: in a private world, what the unit writes about a daemon and a log with a hostile
# device is what Prometheus' own programs take, and its collector hands all of it on.
set -eu
# shellcheck source=scripts/common.sh
. "$1/scripts/common.sh"
# shellcheck source=scripts/private.sh
. "$1/scripts/private.sh"
PATH=$PATH:$1/build/prometheus/usr/bin
for program in promtool prometheus-node-exporter; do
  command -v $program >/dev/null || die "there is no $program; scripts/test --thorough gets it"
done
start_world "$2"

device=$(printf '"\\\n%0200d' 0 | sed 's/0/\xc3\xa9/g; s/$/./')
jq -n --arg device "$device" '{EventType: "Event", Severity: "Critical", MessageArgs: [$device]}' |
  tavriskctl log -
has_entry() { zelctl list --json | grep -q HMC0001; }
wait_until has_entry

directory=/var/lib/prometheus/node-exporter
mkdir -p $directory
# The lines of the unit, with the programs of this build.
sed -n 's|^Exec[A-Z][A-Za-z]*=/.*/\([a-z]*ctl \)|\1|p' "$2/dist/tavrisk-metrics.service" "$2/dist/metrics-zel.conf" >/run/unit
[ "$(wc -l </run/unit)" = 2 ]
sh -e /run/unit
ls $directory
cat $directory/*.prom >/run/all
promtool check metrics </run/all
grep -qx 'tavrisk_up 1' /run/all && grep -qx 'tavrisk_zel_readable 1' /run/all

# In a network of its own.
cat >/run/scrape <<SCRAPE
busybox ip link set lo up
prometheus-node-exporter --collector.disable-defaults --collector.textfile \\
  --collector.textfile.directory=$directory --web.listen-address=127.0.0.1:9100 2>/run/exporter.log &
for _ in \$(seq 100); do
  busybox wget -qO /run/scraped http://127.0.0.1:9100/metrics && break
  sleep 0.1
done
kill \$!
SCRAPE
unshare -n sh /run/scrape
grep -qx 'node_textfile_scrape_error 0' /run/scraped || { cat /run/exporter.log /run/scraped && exit 1; }
[ "$(grep -c '^tavrisk_' /run/scraped)" = "$(grep -c '^tavrisk_' /run/all)" ]
# Its labels are in the order of their names.
escaped=$(printf %s "$device" | sed -z 's/[\\"]/\\&/g; s/\n/\\n/g')
grep -Fx "tavrisk_zel_recorded_entries_total{device=\"$escaped\",message=\"HMC0001\",severity=\"critical\"} 1" \
  /run/scraped
