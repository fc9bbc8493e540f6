#!/bin/sh
# Installs what is missing, builds, and runs every test.
set -eu
cd "$(dirname "$0")"

./setup.sh build test
cmake --preset dev >/dev/null
cmake --build --preset dev
ctest --preset dev
