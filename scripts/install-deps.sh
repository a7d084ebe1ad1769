#!/bin/sh
# Installs the Debian packages a job needs, only those that are missing.
# Usage: install-deps.sh build|test|bench|fuzz  (run as root on Debian 12)
set -eu
build_packages="cmake ninja-build g++ gcc pkgconf ffmpeg"
test_packages="$build_packages googletest g++-s390x-linux-gnu g++-arm-linux-gnueabihf qemu-user mplayer mencoder gstreamer1.0-tools gstreamer1.0-plugins-good mediainfo mjpegtools python3 bsdutils"
bench_packages="$build_packages libbenchmark-dev libavformat-dev strace valgrind"
# clang, its libFuzzer and sanitizer runtimes, and llvm-profdata / llvm-cov for coverage
fuzz_packages="$build_packages googletest clang libclang-rt-dev llvm"

case "${1:-}" in
    build) wanted=$build_packages ;;
    test) wanted=$test_packages ;;
    bench) wanted=$bench_packages ;;
    fuzz) wanted=$fuzz_packages ;;
    *) echo "usage: $0 build|test|bench|fuzz" >&2; exit 2 ;;
esac

missing=""
for pkg in $wanted; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing="$missing $pkg"
done
[ -z "$missing" ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "missing packages:$missing (run as root, or install them first)" >&2
    exit 1
fi
echo "installing:$missing"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# shellcheck disable=SC2086
apt-get install -y -qq --no-install-recommends $missing > /dev/null
