#!/bin/sh
# Configures (once) and builds the project in build/ with CMake and Ninja.
set -eu
cd "$(dirname "$0")/.."
"./scripts/install-deps.sh"
if [ ! -f build/build.ninja ]; then
    cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
cmake --build build
