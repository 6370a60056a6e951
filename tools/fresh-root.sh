#!/usr/bin/env bash
# Follows the README as a new user would, on a freshly bootstrapped minimal Debian bookworm
# (mmdebstrap --variant=minbase, from Debian's packages) in a root shell: clones this
# repository's committed state into it, runs the README's Prerequisites apt-get lines as they
# are written, then its two commands (demo, host). With --ci it then runs `bash .ci/run` there,
# which installs whatever else its stages need. Needs root (chroot, mounts) and access to the
# Debian archive.
#   tools/fresh-root.sh [--ci] [--keep]     (--keep leaves build/fresh-root for a look)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

ci=
keep=
for arg in "$@"; do
  case $arg in
    --ci) ci=1 ;;
    --keep) keep=1 ;;
    *) echo "usage: tools/fresh-root.sh [--ci] [--keep]" >&2; exit 2 ;;
  esac
done
[ "$(id -u)" -eq 0 ] || { echo "fresh root: needs root (chroot and mounts)" >&2; exit 1; }
for tool in mmdebstrap git unshare; do
  [ -x "$(command -v "$tool")" ] ||
    { echo "fresh root not run: $tool is missing (apt-get install -y mmdebstrap git)" >&2; exit 3; }
done

root=$PWD/build/fresh-root
rm -rf "$root"
mkdir -p build
[ -n "$keep" ] || trap 'rm -rf "$root"' EXIT

start=$SECONDS
mirror=http://deb.debian.org/debian
mmdebstrap --quiet --variant=minbase bookworm "$root" "deb $mirror bookworm main" \
  "deb $mirror bookworm-updates main" "deb http://deb.debian.org/debian-security bookworm-security main"
echo "fresh root: minimal bookworm bootstrapped in $((SECONDS - start)) s ($(du -sh "$root" | cut -f1))"
cp /etc/resolv.conf "$root/etc/resolv.conf"
git clone --quiet --no-local . "$root/root/zustd"

# The README's Prerequisites commands, exactly as written there (indented code lines).
prerequisites=$(sed -n '/^## Prerequisites/,/^## /p' README.md | sed -n 's/^    \(apt-get .*\)$/\1/p')
[ -n "$prerequisites" ] || { echo "fresh root: no apt-get lines under README's Prerequisites" >&2; exit 1; }
script="set -e
cd /root/zustd
export DEBIAN_FRONTEND=noninteractive
$prerequisites
t=\$(date +%s); cmake --workflow --preset demo; echo \"fresh root: demo in \$((\$(date +%s) - t)) s\"
t=\$(date +%s); cmake --workflow --preset host; echo \"fresh root: host in \$((\$(date +%s) - t)) s\"
awk '/ Skipped\$/ { getline why; print \"fresh root: a test skipped: \" why }' build/host/Testing/Temporary/LastTest.log"
[ -z "$ci" ] || script+="
t=\$(date +%s); CI=true bash .ci/run; echo \"fresh root: .ci/run in \$((\$(date +%s) - t)) s\""

echo "fresh root: running as root in the new system:"
sed 's/^/  | /' <<<"$script"
# Private mounts: they vanish with this process, whatever happens.
unshare -m --propagation private bash -euc '
  root=$1
  mount -t proc proc "$root/proc"
  mount --rbind /dev "$root/dev"
  mount --rbind /sys "$root/sys"
  mount -t tmpfs tmpfs "$root/tmp"
  chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    LANG=C.UTF-8 bash -c "$2" </dev/null
' _ "$root" "$script"
echo "fresh root: the README's commands passed in a fresh bookworm root in $((SECONDS - start)) s"
