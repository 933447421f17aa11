#!/bin/sh
# Installs what is missing, builds, and runs articlectl's demo: a sample shop in a fresh
# database file and a short register session on it.
set -eu
cd "$(dirname "$0")/.."
"./scripts/build.sh"
mkdir -p build/demo
rm -f build/demo/shop.db build/demo/shop.db-wal build/demo/shop.db-shm build/demo/receipts.db*
./build/bin/articlectl --db build/demo/shop.db demo
