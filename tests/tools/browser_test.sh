#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# browser_test.sh SOURCE BUILD: a page by `zelctl report` of records that want to be markup, in a browser without a
# network. Nothing of them becomes an element or a script, nor has anything fetched; with the page's defences taken
# away all of that happens. And it can be read: nothing sticks out, all texts stand out from what is behind them.
set -eu
source=$1
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
die() { echo "$*" >&2 && exit 1; }

hostile() { # as JSON has it
  cat <<'TEXTS'
</details></pre><script>document.title='ran'</script>
\"><img src=http://tavrisk.invalid/a.png onerror=\"document.title='ran'\">
</svg></style></title><style>@import 'http://tavrisk.invalid/b.css'</style>
\u202e]]>\u0000<!--<iframe srcdoc=x></iframe>
<link rel=stylesheet href=http://tavrisk.invalid/c.css><base href=http://tavrisk.invalid/>
TEXTS
  printf '\377\300\357\277\277<b onmouseover=x>\n'
  cat <<'TEXTS'
<svg onload=title=7>
</pre><h1 id=x a=bb>
TEXTS
}
harmless() { hostile | LC_ALL=C sed "s/\\\\\"/x/g; s/[<>&'=]/x/g"; }

# write_page TEXTS PAGE: of a log whose records, events and CPERs, are full of these.
if [ "${3-}" = --inside ]; then
  # shellcheck source=scripts/private.sh
  . "$source/scripts/private.sh"
  start_world "$build" >/dev/null
  # shellcheck disable=SC2317 # by wait_until
  has() { [ "$(zelctl list --json | wc -l)" = "$1" ]; }
  "$4" | while IFS= read -r text; do
    printf '{"EventType":"Event","Severity":"Critical","Message":"%s","MessageArgs":["%s"],"Resolution":"%s",
      "OriginOfCondition":"%s"}' "$text" "$text" "$text" "$text" >/run/event
    # In the place of its FRU text; and its last digit of the notification type, which its entry names, differs.
    sent=$((${sent-0} + 2))
    cp "$source/samples/cper/memory-error.cper" /run/cper
    printf %b "\\0$(printf %o $sent)" | dd of=/run/cper conv=notrunc bs=1 seek=95 2>/dev/null
    printf '%-20.20s' "$text" | dd of=/run/cper conv=notrunc bs=1 seek=180 2>/dev/null
    tavriskctl log /run/event && tavriskctl cper /run/cper || exit 1
    wait_until has "$sent" || die "no entry of $text"
  done >/dev/null
  zelctl ack 1 --note "$("$4" | head -n 1)" >/dev/null && zelctl report --to="$5"
  exit
fi
for texts in hostile harmless; do
  "$source/scripts/world" "$0" "$source" "$build" --inside $texts "$work/$texts.html"
done

command -v chromium >/dev/null || die 'there is no chromium'
namespaces=--net
[ "$(id -u)" = 0 ] || namespaces='--user --map-root-user --net'
# browse PAGE OPTION...: what becomes of the page; what is asked for is in the file "network".
browse() {
  page=$1
  shift
  # shellcheck disable=SC2086 # a list of options
  HOME=$work timeout 60 unshare $namespaces chromium --headless --no-sandbox --disable-gpu --hide-scrollbars --user-data-dir="$work/profile" \
    --log-net-log="$work/network" --virtual-time-budget=5000 "$@" --dump-dom "$work/$page.html" 2>"$work/errors" ||
    { cat "$work/errors" >&2 && die 'the browser failed'; }
}
title() { grep -o '<title>[^<]*' "$1" | head -n 1 | cut -c8-; }
elements() { sed '/<svg/,/<\/svg>/d' "$1" | grep -oE '<[a-zA-Z][a-zA-Z0-9-]*' | sort | uniq -c; }
ran() { [ "$(title "$work/$1.dom")" != 'Event log report' ]; }
asks() { grep -q 'tavrisk\.invalid' "$work/network"; }

browse harmless >"$work/harmless.dom"
elements "$work/harmless.dom" >"$work/expected"
browse hostile >"$work/hostile.dom"
elements "$work/hostile.dom" | diff "$work/expected" - || die 'an element is of a record'
if asks || ran hostile; then die 'something of a record was done'; fi

# The same were it not escaped: the policy alone is a defence, too. And without both.
sed "s/&lt;/</g; s/&gt;/>/g; s/&quot;/\"/g; s/&#39;/'/g; s/&amp;/\\&/g" "$work/hostile.html" >"$work/raw.html"
browse raw >"$work/raw.dom"
elements "$work/raw.dom" | grep -q '<script' || die 'the records of this test have no script'
if asks || ran raw; then die 'the policy of the page lets something through'; fi
sed -i 's/<meta http-equiv="Content-Security-Policy"[^>]*>//' "$work/raw.html"
browse raw >"$work/raw.dom"
if ! asks || ! ran raw; then die 'the records of this test would do nothing'; fi

# What of the page is wider than the window, and the weakest contrast of a text.
cat >"$work/measure.js" <<'SCRIPT'
document.querySelectorAll('details').forEach(each => each.open = true)
document.documentElement.style.background = 'Canvas'
const light = (element, property) => getComputedStyle(element)[property].match(/[\d.]+/g).slice(0, 3)
  .map(value => value / 255 <= .04045 ? value / 255 / 12.92 : ((value / 255 + .055) / 1.055) ** 2.4)
  .reduce((sum, value, i) => sum + value * [.2126, .7152, .0722][i], .05)
const behind = light(document.documentElement, 'backgroundColor')
let weakest = 21
for (const element of document.querySelectorAll('body *:not(script)')) {
  if ([...element.childNodes].some(node => node.nodeType === 3 && node.data.trim() !== '')) {
    const [low, high] = [light(element, 'color'), behind].sort((a, b) => a - b)
    weakest = Math.min(weakest, high / low)
  }
}
parent.postMessage(`${document.documentElement.scrollWidth - innerWidth} ${weakest >= 4.5} ${behind < .5}`, '*')
SCRIPT
{ sed 's/<meta http-equiv="Content-Security-Policy"[^>]*>//; /<\/body>/d' "$work/hostile.html" &&
  echo '<script>' && cat "$work/measure.js" && echo '</script></body></html>'; } >"$work/measured.html"
for width in 390 1280; do
  # A window cannot be as narrow as a telephone's.
  cat >"$work/look.html" <<HTML
<!DOCTYPE html><html><head><title></title></head><body><script>onmessage = event => document.title = event.data</script>
<iframe src="measured.html" width="$width" height="800"></iframe></body></html>
HTML
  for scheme in 0 1; do
    browse look --window-size=1400,900 --blink-settings=preferredColorScheme=$scheme >"$work/look.dom"
    found=$(title "$work/look.dom")
    dark=true
    [ $scheme = 0 ] || dark=false
    [ "$found" = "0 true $dark" ] || die "at $width, too wide by, readable, dark: $found"
  done
done
