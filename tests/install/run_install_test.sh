#!/bin/sh
# Installs the built tree into a temporary prefix, then builds the C consumer
# against the installed copy only: once through pkg-config, once through the
# CMake package (shared and static), and runs each.
# Usage: run_install_test.sh CMAKE BUILD_DIR SOURCE_DIR C_COMPILER
set -eu
cmake=$1 build=$2 source=$3 cc=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
consumer_src=$source/tests/c_api/c99_consumer.c

"$cmake" --install "$build" --prefix "$prefix" > "$work/install.log"
libdir=$(dirname "$(find "$prefix" -name 'libkelqavi.so.1' | head -n 1)")
for f in "$prefix/include/kelqavi.h" "$libdir/libkelqavi.so" "$libdir/libkelqavi.a" \
         "$libdir/pkgconfig/kelqavi.pc" "$libdir/cmake/kelqavi/kelqaviConfig.cmake"; do
    [ -e "$f" ] || { echo "not installed: $f"; exit 1; }
done
# The licence, and the manual page with a section for every command.
[ -s "$prefix/share/doc/kelqavi/LICENSE" ] || { echo "not installed: the licence"; exit 1; }
man=$prefix/share/man/man1/kelqavi.1
head -n 1 "$man" | grep -q '^\.TH KELQAVI 1 ' || { echo "no manual page at $man"; exit 1; }
for command in riff info chunks mux remux sample keys frame subs repair; do
    grep -qx "\.SS $command" "$man" || { echo "the manual page has no section for '$command'"; exit 1; }
done

# Nothing of the source or build tree may be reachable from here on.
echo "pkg-config consumer"
flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs kelqavi)
"$cc" -std=c99 -Wall -Wextra -pedantic -Werror -o "$work/consumer_pc" "$consumer_src" $flags -Wl,-rpath,"$libdir"
ldd "$work/consumer_pc" | grep -q "$libdir/libkelqavi.so.1" || { echo "pkg-config consumer does not use the installed library"; exit 1; }
"$work/consumer_pc"

echo "find_package consumer"
"$cmake" -S "$source/tests/install/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_COMPILER="$cc" -DCONSUMER_SOURCE="$consumer_src" > "$work/configure.log" \
    || { cat "$work/configure.log"; exit 1; }
"$cmake" --build "$work/consumer" > "$work/build.log" || { cat "$work/build.log"; exit 1; }
ldd "$work/consumer/consumer_shared" | grep -q "$libdir/libkelqavi.so.1" || { echo "CMake consumer does not use the installed library"; exit 1; }
"$work/consumer/consumer_shared"
"$work/consumer/consumer_static"
echo "install test passed"
