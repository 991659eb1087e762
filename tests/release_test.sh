#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# release_test.sh SOURCE: each file of the tree states its licence, or REUSE.toml does, and all that tell
# the version tell the same.
set -eu
cd "$1"

files() {
  if [ -e .git ]; then git -c safe.directory='*' ls-files; else find . -type f | sed 's|^\./||'; fi
}

stated_there=$(sed -n 's/^  "\(.*\)",$/\1/p' REUSE.toml)
unstated=$(files | grep -vE '^(build/|LICENSE$)' | tr '\n' '\0' |
  xargs -0 grep -L 'SPDX-License-Identifier: Apache-2.0' | while read -r file; do
  for pattern in $stated_there; do
    # shellcheck disable=SC2254 # a pattern is meant
    case $file in $pattern) continue 2 ;; esac
  done
  echo "$file"
done)
[ -z "$unstated" ] || { echo "no licence stated in: $unstated" && exit 1; }

# told WHAT FILE SED-EXPRESSION: the first version that the file tells.
told() {
  version=$(sed -n "$3" "$2" | head -n 1)
  [ "$version" = "$expected" ] || { echo "$1 is $version, not $expected" && exit 1; }
}
expected=$(sed -n "s/^  version: '\(.*\)',$/\1/p" meson.build)
echo "$expected" | grep -qE '^[0-9]+\.[0-9]+\.[0-9]+$'
told 'the uppermost version of the changelog' CHANGELOG.md \
  's/^## \([0-9.]*\), [0-9]* [A-Z][a-z]* 20[0-9][0-9]$/\1/p'
told "the package's version" debian/changelog 's/^tavrisk (\([0-9.]*\)) .*/\1/p'
[ -f "docs/yocto/meta-tavrisk/recipes-support/tavrisk/tavrisk_$expected.bb" ] ||
  { echo "the recipe is not named after $expected" && exit 1; }
