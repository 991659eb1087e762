#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# report_test.sh SOURCE BUILD: records that try to become a page's markup, through a daemon into a page: it is
# well-formed, has their text, and no element that is of a record. Then a bundle of them, with files in the data
# tree that are none of the daemon's.
set -eu
source=$1 "$1/scripts/world" "$1/scripts/try" --inside "$2" 0.01 <<'SHELL'
exec 2>&1
event() { # NAME, as JSON has it
  printf '{"EventType":"Event","Severity":"Critical","Message":"%s","MessageArgs":["%s"]}' "$1" "$1" >/run/record
  tavriskctl log /run/record || exit 1
}
event "</details></pre><script>document.title='x'</script>"
event '\"><img src=x onerror=\"document.title=1\">'
event '\u202eevil\u0007]]>&amp;<!--'
event "$(printf 'a\357\277\277b')"
wait_until() { for _ in $(seq 100); do "$@" && return; sleep 0.1; done; return 1; }
has_all() { zelctl list --grep ']]>' | grep -q evil && zelctl list --grep '<img' | grep -q onerror && zelctl list --grep '</pre>' | grep -q script && zelctl list --device SPEED | grep -q FAN; }
wait_until has_all || exit 1
echo 'old' >/run/page.html
zelctl report -o /run/page.html || exit 1
xmllint --noout /run/page.html || exit 1
grep -q "&lt;/details&gt;&lt;/pre&gt;&lt;script&gt;document.title=&#39;x&#39;&lt;/script&gt;" /run/page.html || exit 1
grep -q 'a\\u{ffff}b' /run/page.html && grep -q '\\u{202e}evil' /run/page.html && grep -q 'SHA-512</th><td>[0-9a-f]\{128\}<' /run/page.html || exit 1
! sed 's/<a href="#e[0-9]*">//g' /run/page.html | grep -iE '<(script|img|link|iframe|object)|<[^>]*(src|href|onerror)=' || exit 1
# A page that could not be finished leaves what was there, and nothing beside it.
echo 'old' >/run/page.html
! (ulimit -f 1; trap '' XFSZ; zelctl report -o /run/page.html) || exit 1
[ "$(cat /run/page.html)" = old ] && [ "$(ls /run/page.html*)" = /run/page.html ] || exit 1
! zelctl report --to=/dev/null || exit 1
zelctl report --to=- --limit=1 | grep -q 'older ones are not shown' || exit 1

# unpacked BUNDLE: below /run/top, by two programs, and as its own list has it.
unpacked() {
  rm -rf /run/top && mkdir /run/top && tar -xzf "$1" -C /run/top && cd /run/top/tavrisk-* || return 1
  [ "$(busybox tar -tzf "$1" | tee /run/names)" = "$(tar -tzf "$1")" ] && ! grep -vE '^tavrisk-[A-Za-z0-9._/-]*$' /run/names &&
    [ "$(ls /run/top | wc -l)" = 1 ] && sha512sum -c --quiet --strict SHA512SUMS
}
event BUNDLED
has_more() { [ "$(zelctl list --device BUNDLED | wc -l)" = 1 ]; }
wait_until has_more || exit 1
kept=$(find /run/hmc -maxdepth 1 -name "$(sha512sum </run/record | cut -c-128).*") || exit 1
seconds=${kept##*.}
cp "$kept" "/run/hmc/-a
.. .$seconds" && cp "$kept" /run/elsewhere && ln -s ../elsewhere "/run/hmc/link.$seconds" && mkfifo "/run/hmc/fifo.$seconds" || exit 1
report() { timeout 60 zelctl report --device BUNDLED "$@"; }
report --bundle=/run/bundle.tar.gz -o /run/page.html && unpacked /run/bundle.tar.gz && cmp /run/page.html report.html &&
  cmp "$kept" "raw/cache/${kept##*/}" && cmp "$kept" raw/cache/renamed-1 && head -n 9 /var/log/tavrisk/debug.log | cmp -n 500 - debug.log || exit 1
[ "$(ls raw/cache | wc -l)" = 2 ] && [ "$(grep -c 'SHA-512</th><td>[0-9a-f]' report.html)" = 2 ] && [ "$(cat entries.json)" = "$(zelctl list --device BUNDLED --json)" ] || exit 1
jq -e '.files[] | select(.name == "raw/cache/renamed-1") | .from | contains("/-a\n.. .")' manifest.json || exit 1
jq -e '.check.status == "critical" and .stats.matching == 1' health.json || exit 1

# A CPER, from the call to the page and into the bundle.
cper=$source/samples/cper/memory-error.cper
digest=$(sha512sum <"$cper" | cut -c-128) && tavriskctl cper "$cper" || exit 1
has_cper() { zelctl list --long --since "@$seconds" | grep -q 'single-bit ECC error at node 0, card 1, module 4.*DIMM A4'; }
wait_until has_cper && zelctl report --since "@$seconds" --bundle=/run/cper.tar.gz && unpacked /run/cper.tar.gz || exit 1
cmp "$cper" raw/cache/rawCPER/"$digest".* && grep -q "SHA-512</th><td>$digest<" report.html || exit 1
grep -q '<strong>.*single-bit ECC error at node 0, card 1, module 4.*&quot;DIMM A4&quot;' report.html || exit 1

# A file that is emptied when most of it has been packed; and a packer that ends early, or is not there.
mkdir /run/bin && { cat /run/record && head -c 1000000 /dev/zero | tr '\0' ' '; } >"/run/hmc/large.$seconds" || exit 1
pack_with() { echo "$1" >/run/bin/gzip && chmod +x /run/bin/gzip && PATH=/run/bin:$PATH report --bundle=/run/bundle.tar.gz; }
pack_with "#!/bin/sh
{ head -c 600000 && : >/run/hmc/large.$seconds && cat; } | /bin/gzip -c" && unpacked /run/bundle.tar.gz || exit 1
jq -e '[.files[] | select(.changedWhileRead and (.name | startswith("raw"))) | .size] == [1000000 + $record]' --argjson record "$(wc -c </run/record)" manifest.json || exit 1
echo old >/run/bundle.tar.gz
for packer in 'head -c 9 >/dev/null; exit 3' 'cat >/dev/null; exit 3' 'kill -9 $$' 'kill -9 $PPID'; do
  ! pack_with "#!/bin/sh
$packer" || exit 1
done
[ "$(cat /run/bundle.tar.gz)" = old ] && ! ls /run/bundle.tar.gz.* 2>/dev/null && zelctl=$(command -v zelctl) || exit 1
! PATH=/run/none $zelctl report --bundle=/run/bundle.tar.gz || exit 1
zelctl report --bundle=- | tar -tz | grep -q SHA512SUMS || exit 1

# A log that cannot be read, or not to its end, is told of with what there is beside it; one that is not there is not.
zelctl backup /run/bad.db || exit 1
for begin in 0 3; do
  head -c 65536 /dev/zero | tr '\0' x | dd of=/run/bad.db bs=4096 seek=$begin conv=notrunc 2>/dev/null
  ! zelctl report --db /run/bad.db --bundle=/run/bad.tar.gz && unpacked /run/bad.tar.gz && xmllint --noout report.html || exit 1
  grep -q 'something of the log could not be read: ' report.html && [ -s debug.log ] || exit 1
  { [ -s entries.json ] || jq -e '.leftOut[] | select(.from == "/run/bad.db") | .problem != ""' manifest.json; } && jq -e '.check.status != "ok"' health.json || exit 1
  rm /run/bad.* && zelctl backup /run/bad.db || exit 1
done
# With any one page of it damaged, the report has no less than `list`, and the records of that.
lists=0 more=0
for page in 1 2 3 4 5 6 8 10 13; do
  cp /run/bad.db /run/part.db && head -c 4096 /dev/zero | tr '\0' x | dd of=/run/part.db bs=4096 seek="$page" conv=notrunc 2>/dev/null
  listed=$(zelctl list --db /run/part.db --json 2>/dev/null | wc -l)
  zelctl report --db /run/part.db --bundle=/run/part.tar.gz 2>/dev/null
  unpacked /run/part.tar.gz && shown=$(grep -c '<details id=' report.html)
  [ "$shown" -ge "$listed" ] && xmllint --noout report.html || exit 1
  [ "$shown" = "$listed" ] || more=$((more + 1))
  [ "$listed" = 0 ] || { [ -d raw/cache ] && lists=$((lists + 1)); } || exit 1
done
[ "$lists" -gt 2 ] && [ "$more" -gt 0 ] || exit 1

# What cannot be read to its end, or not at all, is named.
leaves_out() { unpacked /run/part.tar.gz && jq -e ".leftOut[] | select(.from == \"$1\") | .problem | contains(\"$2\")" manifest.json; }
rm -f /var/log/tavrisk/debug.log.1 && ln -s nowhere /var/log/tavrisk/debug.log.1 && report --bundle=/run/part.tar.gz && leaves_out /var/log/tavrisk/debug.log.1 link || exit 1
rm /var/log/tavrisk/debug.log.1 && echo >/var/log/tavrisk/debug.log.1 && mount --bind /sys/class/net/lo/speed /var/log/tavrisk/debug.log.1 || exit 1
report --bundle=/run/part.tar.gz && unpacked /run/part.tar.gz && umount /var/log/tavrisk/debug.log.1 || exit 1
jq -e '.files[] | select(.name == "debug.log.1") | .problem == "Invalid argument"' manifest.json || exit 1
chmod 0700 /run/hmc && chmod 0644 /run/bad.db && setpriv --reuid=65534 --clear-groups "$zelctl" report --db /run/bad.db --bundle=- >/run/part.tar.gz &&
  leaves_out 'raw files' 'Permission denied' || exit 1

# A record that is large for its words is not taken apart.
{ printf '{"EventType":"Event","Severity":"Critical","MessageArgs":["LARGE"],"Message":"x","x":[1' && yes ,1 | head -n 2000000 | tr -d '\n' && echo ']}'; } >/run/record
tavriskctl log /run/record || exit 1
has_large() { [ -n "$(zelctl list --device LARGE)" ]; }
wait_until has_large && zelctl report --device LARGE -o - | grep -q 'Too large for its words' || exit 1
[ -n "${TAVRISK_SANITIZED-}" ] || (ulimit -v 100000; zelctl list --output=redfish --device LARGE) | jq -e '.Members | length == 1' || exit 1
! zelctl report --db /run/none.db -o /run/none.html && [ ! -e /run/none.html ] || exit 1
SHELL
