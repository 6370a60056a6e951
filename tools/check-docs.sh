#!/usr/bin/env bash
# Builds the API reference and its package (preset docs: Doxygen fails on any warning), then
# opens the pages in headless Chromium as a reader would: the main page must render the
# README, the class index must list every public class and record, the modules page every
# unit of the README's table, and a class page its documented odd results. Screenshots of
# the main page and of CKAString's page are left in build/docs/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() { echo "docs check: $*" >&2; exit 1; }
for tool in doxygen chromium dpkg-deb; do
  [ -x "$(command -v "$tool")" ] ||
    { echo "docs check not run: $tool is missing (see the README's docs section)" >&2; exit 3; }
done

cmake --workflow --preset docs >/dev/null
html=$PWD/build/docs/docs/html
deb=build/docs/libzustd-doc_1.0.0_all.deb
[ -f "$deb" ] || fail "$deb missing"
[ "$(dpkg-deb -f "$deb" Architecture)" = all ] || fail "$deb: Architecture is not all"
[ "$(dpkg-deb -f "$deb" Multi-Arch)" = foreign ] || fail "$deb: Multi-Arch is not foreign"
files=$(dpkg-deb -c "$deb")
grep -q <<<"$files" './usr/share/doc/libzustd-doc/html/index.html$' || fail "$deb: no index.html"

browse() {  # <page> <screenshot or -> : prints the rendered page's DOM
  local args=(--headless --no-sandbox --disable-gpu --hide-scrollbars --window-size=1280,1400)
  if [ "$2" != - ]; then
    timeout 120 chromium "${args[@]}" --screenshot="$2" "file://$html/$1" >/dev/null 2>&1 ||
      fail "chromium could not render $1"
    [ "$(stat -c %s "$2")" -gt 20000 ] || fail "$2: the screenshot of $1 is nearly empty"
  fi
  timeout 120 chromium "${args[@]}" --dump-dom "file://$html/$1" 2>/dev/null
}

main=$(browse index.html build/docs/index.png)
grep -q 'is a C++ foundation library' <<<"$main" || fail "main page lacks the README's text"

# Every public class and record declared at file level in the headers.
classes=$(sed -n -E 's/^(class|struct)( ZUSTD_API)? ([A-Z][A-Za-z0-9_]*).*/\3/p' include/*.h | sort -u)
index=$(browse annotated.html -)
for c in $classes; do
  grep -q ">$c<" <<<"$index" || fail "the class index lacks $c"
done

modules=$(browse modules.html -)
units=$(grep -E '^\| `zu_[^|]*\| `zu_[a-z_]*\.h`' README.md | cut -d'|' -f2 | grep -o 'zu_[a-z_]*')
for u in $units; do
  grep -qw "$u" <<<"$modules" || fail "the modules page lacks $u"
done

string=$(browse classCKAString.html build/docs/CKAString.png)
grep -q 'Assigning a string to itself leaves it empty' <<<"$string" ||
  fail "CKAString's page lacks its documented self-assignment result"
echo "docs check: $(wc -w <<<"$classes") classes, $(wc -w <<<"$units") units rendered; screenshots in build/docs/"
