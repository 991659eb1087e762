#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# try_test.sh SOURCE BUILD: the shell of scripts/try, with an HMC in a hurry: all kinds of events that it is
# to show come into the event log within a round, and the daemon accepts each record. Then one that a crash has left
# behind is handed in again, once.
set -eu
"$1/scripts/world" "$1/scripts/try" --inside "$2" 0.01 <<'SHELL'
tries=600
until kinds=$(zelctl list --json | sed 's/.*"device":"\([^"]*\)".*"messageId":"\([A-Z0-9]*\)".*/\2 \1/' | sort -u) &&
  [ "$(echo "$kinds" | wc -l)" -ge 9 ]; do
  tries=$((tries - 1)) && [ $tries -gt 0 ] || break
  sleep 0.1
done
echo "$kinds" >/run/kinds
cat >/run/expected <<KINDS
HMC0001 DIMM_A4
HMC0002 2dce8bb1-bdd7-450e-b9ad-9cf4ebd4f890
HMC0002 FAN_TRAY_1_SPEED
HMC0002 Link_11
HMC0002 cf93c01f-1a16-4dfc-b8bc-9c4daf67c104
HMC0004 DIMM_A4 correctable ECC error count
HMC0005 GPU_3_TEMP_0
HMC0006 GPU_3_TEMP_0
HMC0007 FAN_TRAY_1_SPEED
KINDS
diff /run/expected /run/kinds && ! grep 'not accepted' /run/hmc.log || exit 1

lost=/run/hmc/lost.$(($(date +%s) - 200))
echo '{"EventType": "Event", "Severity": "Critical", "MessageArgs": ["LOST"]}' >"$lost"
zelctl recover --null | xargs -0r tavriskctl log --remove-accepted >/run/recovered
grep -Fx "/var$lost: accepted, and removed" /run/recovered && [ ! -e "$lost" ] || exit 1
wait_until() { for _ in $(seq 100); do "$@" && return; sleep 0.1; done; return 1; }
has_entry() { zelctl list --device LOST --json | grep -q LOST; }
wait_until has_entry && [ -z "$(zelctl recover --null)" ] && [ "$(zelctl list --device LOST | wc -l)" = 1 ]
SHELL
