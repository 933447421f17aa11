#!/bin/sh
# Builds the Debian packages (libarticlemanager1, libarticlemanager-dev, articlectl) and checks
# them as their users would meet them:
#   package.sh          for this machine, in build-pkg/; the .debs land in build-pkg/
#   package.sh armhf    for the register's board, in build-armhf-pkg/ (the sysroot of
#                       scripts/armhf-sysroot.sh; the consumer runs under qemu-arm)
# Checks: every library keeps its SONAME, carries no search path and is stripped; every library
# a packaged program loads comes from the project's packages or from one the package depends
# on; and a consumer project, with a poisoned sqlite3.h first on its include path, builds and
# runs against the unpacked packages by find_package(ArticleManager) and (natively) by
# pkg-config.
set -eu
cd "$(dirname "$0")/.."
root_dir="$(pwd)"
arch="${1:-native}"
case "$arch" in
    native)
        folder=build-pkg
        "./scripts/install-deps.sh" dpkg-dev file
        set --
        tools=""
        ;;
    armhf)
        folder=build-armhf-pkg
        "./scripts/install-deps.sh" dpkg-dev file g++-arm-linux-gnueabihf qemu-user
        sysroot="$(./scripts/armhf-sysroot.sh)"
        set -- -DCMAKE_TOOLCHAIN_FILE="$root_dir/cmake/armhf-toolchain.cmake" \
            -DARTICLEMANAGER_ARMHF_SYSROOT="$sysroot"
        tools=arm-linux-gnueabihf-
        ;;
    *)
        echo "usage: $0 [armhf]" >&2
        exit 2
        ;;
esac

if [ ! -f "$folder/build.ninja" ]; then
    cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
        -DARTICLEMANAGER_BUILD_TESTS=OFF -DARTICLEMANAGER_BUILD_EXAMPLES=OFF \
        -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON "$@"
fi
cmake --build "$folder" -j "$(nproc)"
rm -f "$folder"/*.deb
(cd "$folder" && cpack -G DEB >/dev/null)

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
unpacked="$work/root"
failures=0
fail() {
    echo "package check: $*" >&2
    failures=$((failures + 1))
}
for deb in "$folder"/*.deb; do
    echo "== $(basename "$deb") ($(stat -c %s "$deb") bytes)"
    dpkg-deb -I "$deb"
    dpkg-deb -c "$deb"
    dpkg-deb -x "$deb" "$unpacked"
    dpkg-deb -x "$deb" "$work/$(dpkg-deb -f "$deb" Package)"
done

# Each package's ELF files: stripped, no search path, and what they load is accounted for.
provided="$(find "$unpacked" -name '*.so.*' -printf '%f\n')"
for deb in "$folder"/*.deb; do
    package="$(dpkg-deb -f "$deb" Package)"
    depends="$(dpkg-deb -f "$deb" Depends)"
    for elf in $(find "$work/$package" -type f | xargs file | sed -n 's/: *ELF.*//p'); do
        name="${elf#"$work/$package"}"
        dynamic="$(readelf -d "$elf")"
        if echo "$dynamic" | grep -q 'RPATH\|RUNPATH'; then
            fail "$name carries a library search path"
        fi
        if readelf -S "$elf" | grep -q '\.symtab'; then
            fail "$name is not stripped"
        fi
        case "$name" in
            *.so.*)
                soname="$(echo "$dynamic" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')"
                [ "$soname" = "$(basename "$name" | sed 's/\(\.so\.[0-9]*\).*/\1/')" ] ||
                    fail "$name has SONAME '$soname'"
                ;;
        esac
        for needed in $(echo "$dynamic" | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p'); do
            if echo "$provided" | grep -qx "$needed.*"; then
                continue
            fi
            from="$(awk -v soname="$needed" '$1 == soname { print $2 }' "$folder/deb-shlibs.txt")"
            if [ -z "$from" ]; then
                fail "$name loads $needed, which no Debian package of the table provides"
            elif ! echo ", $depends," | grep -q ", $from "; then
                fail "$name loads $needed, but $package does not depend on $from"
            fi
        done
    done
    # On this machine dpkg-shlibdeps knows the oldest versions that are enough: the table
    # must not ask for less.
    if [ "$arch" = native ] && [ "$package" != libarticlemanager-dev ]; then
        mkdir -p "$work/shlibdeps/debian" && echo "Source: x" >"$work/shlibdeps/debian/control"
        computed="$(cd "$work/shlibdeps" && dpkg-shlibdeps --ignore-missing-info -O \
            -l"$(dirname "$(find "$unpacked" -name 'libArticleManager.so.1' | head -1)")" \
            $(find "$work/$package" -type f | xargs file | sed -n 's/: *ELF.*//p') 2>/dev/null |
            sed 's/^shlibs:Depends=//')"
        echo "$computed" | tr ',' '\n' | sed -n 's/^ *\([^ ]*\) (>= \(.*\))$/\1 \2/p' |
            while read -r dependency version; do
                stated="$(echo ", $depends," | sed -n "s/.*, $dependency (>= \([^)]*\)),.*/\1/p")"
                if [ -z "$stated" ] || dpkg --compare-versions "$stated" lt "$version"; then
                    echo "package check: $package needs $dependency (>= $version)," \
                        "the table says '${stated:-nothing}'" >&2
                    exit 1
                fi
            done || failures=$((failures + 1))
    fi
done

# A consumer that may not see SQLite's headers: the packages must not need them.
mkdir -p "$work/poison"
echo '#error "a consumer of the packages must not need sqlite3.h"' >"$work/poison/sqlite3.h"
multiarch="$(find "$unpacked/usr/lib" -name 'libArticleManager.so' -printf '%h\n' | head -1)"
consumer="$root_dir/tests/package/consumer"
cmake -S "$consumer" -B "$work/consumer" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_FLAGS="-I$work/poison" -DCMAKE_DISABLE_FIND_PACKAGE_SQLite3=ON \
    -DCMAKE_PREFIX_PATH="$unpacked/usr" -DCMAKE_FIND_ROOT_PATH="$unpacked" --no-warn-unused-cli \
    "$@" >/dev/null
cmake --build "$work/consumer"
mkdir -p "$work/data"
if [ "$arch" = native ]; then
    LD_LIBRARY_PATH="$multiarch" "$work/consumer/consumer" "$work/data" ||
        fail "the find_package consumer failed"
    rm -f "$work/data"/*
    # shellcheck disable=SC2046
    c++ -std=c++17 -fPIC -I"$work/poison" "$consumer/main.cpp" -o "$work/consumer-pc" \
        $(PKG_CONFIG_PATH="$multiarch/pkgconfig" pkg-config --cflags --libs articlemanager) &&
        LD_LIBRARY_PATH="$multiarch" "$work/consumer-pc" "$work/data" ||
        fail "the pkg-config consumer failed"
else
    LD_LIBRARY_PATH="$multiarch" qemu-arm -L "$sysroot" "$work/consumer/consumer" "$work/data" ||
        fail "the find_package consumer failed under qemu-arm"
fi
if [ "$failures" -ne 0 ]; then
    echo "package check: $failures problem(s)" >&2
    exit 1
fi
echo "packages in $folder/ checked"
