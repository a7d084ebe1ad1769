#!/bin/sh
# Replays the fuzz corpora through a build with clang's source coverage and
# reports the library lines each target reaches, then all of them together.
# Usage: fuzz-coverage.sh [TARGET...]   (default: every target with a corpus)
set -eu
cd "$(dirname "$0")/.."
build=build/fuzz-coverage
flags="-fprofile-instr-generate -fcoverage-mapping"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="$flags" -DKELQAVI_BUILD_TOOLS=OFF > /dev/null

targets="$*"
[ -n "$targets" ] || targets=$(ls fuzz/corpus)
library="riff headers odml reader extensions writer repair"
first=""
objects=""
rm -f "$build"/*.profraw
for target in $targets; do
    cmake --build "$build" --target "${target}_replay" > /dev/null
    LLVM_PROFILE_FILE="$build/$target.profraw" "$build/fuzz/${target}_replay" fuzz/corpus/"$target"/* > /dev/null
    llvm-profdata merge -o "$build/$target.profdata" "$build/$target.profraw"
    echo "== $target: library lines reached"
    # shellcheck disable=SC2086
    llvm-cov report "$build/fuzz/${target}_replay" -instr-profile="$build/$target.profdata" $library |
        awk '$1 == "TOTAL" { printf "%d of %d lines (%s)\n", $8 - $9, $8, $10 }' 
    if [ -z "$first" ]; then first="$build/fuzz/${target}_replay"; else objects="$objects -object $build/fuzz/${target}_replay"; fi
done
llvm-profdata merge -o "$build/all.profdata" "$build"/*.profraw
echo "== all targets"
# shellcheck disable=SC2086
llvm-cov report "$first" $objects -instr-profile="$build/all.profdata" $library
