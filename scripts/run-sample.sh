#!/bin/sh
# Installs what is missing, builds the library and the kelqavi tool, and shows
# the RIFF tree of the tool's built-in sample file.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh build
cmake --preset release > /dev/null
cmake --build --preset release
./build/release/tools/kelqavi riff "$@"
