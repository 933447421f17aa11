#!/bin/sh
# Makes the armhf sysroot that the cross build compiles, links and runs its tests against: the
# board's Debian release with Qt, SQLite, GoogleTest and Google Benchmark, unpacked from Debian's
# armhf packages. Made once, outside the source tree, and reused; prints its folder.
#   ARTICLEMANAGER_ARMHF_SYSROOT   where it lives (default /var/cache/articlemanager/armhf-sysroot
#                                  for root, ~/.cache/articlemanager/armhf-sysroot for others)
# Root's is outside its home, so that the tests that run the tool as nobody can load it too.
set -eu
cd "$(dirname "$0")/.."
if [ "$(id -u)" -eq 0 ]; then
    cache=/var/cache/articlemanager
else
    cache="${XDG_CACHE_HOME:-$HOME/.cache}/articlemanager"
fi
sysroot="${ARTICLEMANAGER_ARMHF_SYSROOT:-$cache/armhf-sysroot}"
if [ -f "$sysroot/.complete" ]; then
    echo "$sysroot"
    exit 0
fi
"./scripts/install-deps.sh" mmdebstrap g++-arm-linux-gnueabihf qemu-user >&2

. /etc/os-release
suite="${VERSION_CODENAME:?no VERSION_CODENAME in /etc/os-release}"
# The machine's own Debian mirror, from its apt sources (deb822 first, then one-line format).
mirror="$(awk -v suite="$suite" '
    /^URIs:/ { uri = $2 }
    /^Suites:/ { for (i = 2; i <= NF; ++i) if ($i == suite) found = uri }
    END { if (found != "") print found }' /etc/apt/sources.list.d/*.sources 2>/dev/null || true)"
if [ -z "$mirror" ] && [ -f /etc/apt/sources.list ]; then
    mirror="$(awk -v suite="$suite" '$1 == "deb" && $3 == suite { print $2; exit }' \
        /etc/apt/sources.list)"
fi
[ -n "$mirror" ] || { echo "no Debian mirror for $suite in the apt sources" >&2; exit 1; }

# Only the release's main suite: its armhf and amd64 indices are always in step.
rm -rf "$sysroot.partial"
mkdir -p "$(dirname "$sysroot")"
mmdebstrap --quiet --variant=extract --architectures=armhf \
    --include=qtbase5-dev,libsqlite3-dev,libgtest-dev,libbenchmark-dev,libstdc++-12-dev \
    "$suite" "$sysroot.partial" "deb $mirror $suite main" >&2
touch "$sysroot.partial/.complete"
rm -rf "$sysroot"
mv "$sysroot.partial" "$sysroot"
echo "$sysroot"
