#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# report_test.sh SOURCE BUILD: records that try to become a page's markup, through a daemon into a page: it is
# well-formed, has their text, and no element that is of a record.
set -eu
"$1/scripts/world" "$1/scripts/try" --inside "$2" 0.01 <<'SHELL'
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
grep -q 'a\\u{ffff}b' /run/page.html && grep -q '\\u{202e}evil' /run/page.html && grep -q 'SHA-512 [0-9a-f]\{128\}' /run/page.html || exit 1
! grep -iE '<(script|img|link|iframe|object)|<[^>]*(src|href|onerror)=' /run/page.html || exit 1
# A page that could not be finished leaves what was there, and nothing beside it.
echo 'old' >/run/page.html
! (ulimit -f 1; trap '' XFSZ; zelctl report -o /run/page.html) || exit 1
[ "$(cat /run/page.html)" = old ] && [ "$(ls /run/page.html*)" = /run/page.html ] || exit 1
! zelctl report --to=/dev/null || exit 1
zelctl report --to=- --limit=1 | grep -q 'older ones are not shown' || exit 1
SHELL
