#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# redfish_test.sh SOURCE BUILD: what a daemon has logged, as a Redfish server serves it, and the message registry hold
# to their schema and agree; each record is what was handed in.
set -eu
source=$1 "$1/scripts/world" "$1/scripts/try" --inside "$2" 1000 <<'SHELL'
exec 2>&1
set -e
event() { # SEVERITY NAME, as JSON has it
  printf '{"EventType":"Event","Severity":"%s","MessageArgs":["%s"]}' "$1" "$2" >/run/record
  tavriskctl log /run/record
}
tavriskctl log "$source"/samples/events/event*.json
event Critical '\u202eevil\u0000\"\\'
event Warning "$(printf 'a\377\302\233b\\"c\\\\')"
cd "$source/samples/cper"
tavriskctl cper default-type-four-bytes-ahead.cper pcie-error.cper processor-and-memory-error.cper
has_all() { [ "$(zelctl list | wc -l)" = 13 ]; } # and one that the HMC begins with
for _ in $(seq 100); do ! has_all || break; sleep 0.1; done
zelctl ack 2 --note seen
zelctl list --output redfish >/run/log.json

registry=$source/src/tools/zelctl/redfish/OSKA.1.0.0.json
/usr/bin/python3 -W ignore -m jsonschema -i /run/log.json -i "$registry" "$source/src/tools/zelctl/redfish/redfish.schema.json"
if LC_ALL=C grep '[^ -~]' /run/log.json; then exit 1; fi
# What a client makes of an entry with the registry is what the entry says by itself.
jq -e --slurpfile registry "$registry" '[.Members[] | select(
    (.MessageId | split(".")) as $id | $registry[0].Messages[$id[-1]] as $message | .MessageArgs as $args |
    ($id[:-1] | join(".")) + ".0" == $registry[0].Id and ($args | length) == $message.NumberOfArgs and
    .Message == ($message.Message | split("%1") | join($args[0])) and
    .Severity == $message.MessageSeverity and .Resolution == $message.Resolution)] | length == 13' /run/log.json
jq -e '[.Members[] | select(.Resolved).Id] == ["2"] and .["Members@odata.count"] == 13' /run/log.json

data() { jq -r ".Members[] | select(.CPER.NotificationType == \"$1\") | $2" /run/log.json; }
data 6d5244f2-2712-11ec-bea7-cb3fdb95c786 .DiagnosticData | base64 -d | cmp - default-type.cper
data cf93c01f-1a16-4dfc-b8bc-9c4daf67c104 .DiagnosticData | base64 -d | cmp - pcie-error.cper
[ "$(data cf93c01f-1a16-4dfc-b8bc-9c4daf67c104 .CPER.SectionType)" = d995e954-bbc1-430f-ad91-b44dcb3c6f35 ]
[ "$(data 9a78788a-bbe8-11e4-809e-67611e5d46b0 .CPER.SectionType)" = null ]
SHELL
