#!/bin/sh
# Installs the Debian packages the project needs to build and test, only those missing; any
# arguments name further packages a script needs (e.g. clang for the fuzzer, valgrind).
set -eu

packages="g++ cmake ninja-build pkg-config binutils qtbase5-dev libsqlite3-dev libgtest-dev libbenchmark-dev $*"

missing=""
for package in $packages; do
    if ! dpkg -s "$package" >/dev/null 2>&1; then
        missing="$missing $package"
    fi
done
[ -z "$missing" ] && exit 0

as_root=""
if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null 2>&1; then
        as_root="sudo"
    else
        echo "missing packages:$missing; run this script as root to install them" >&2
        exit 1
    fi
fi
echo "installing:$missing"
# A mirror can be briefly out of sync: a partial update is fine as long as the install works.
$as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq || true
# shellcheck disable=SC2086
$as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
