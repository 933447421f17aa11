#!/bin/sh
# Installs what is missing, builds, and runs the example on a fresh article database.
set -eu
cd "$(dirname "$0")/.."
"./scripts/build.sh"
mkdir -p build/demo
rm -f build/demo/articles.db build/demo/articles.db-wal build/demo/articles.db-shm
./build/examples/quickstart build/demo/articles.db
