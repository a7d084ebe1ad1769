#!/bin/sh
# Installs what is missing, then builds and runs every test: a plain build,
# AddressSanitizer with UndefinedBehaviorSanitizer, and cross builds for
# big-endian s390x and 32-bit armhf run under qemu-user.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh test

presets="${KELQAVI_PRESETS:-default sanitize s390x armhf}"
for preset in $presets; do
    echo "=== $preset ==="
    cmake --preset "$preset" > /dev/null
    cmake --build --preset "$preset"
    ctest --preset "$preset"
done
