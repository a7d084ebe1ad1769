#!/bin/sh
# Counts the non-blank, non-comment lines of the library, the tool, the benchmarks and
# fuzzers, and the tests, and the tests' share of all of them.
set -eu
cd "$(dirname "$0")/.."
count() { # files...
  for f in "$@"; do
    case "$f" in
      *.sh|*.cmake|*CMakeLists.txt|*.py) sed -e 's/^[[:space:]]*#.*$//' "$f" ;;
      *) sed -e 's://.*$::' "$f" | perl -0pe 's:/\*.*?\*/::gs' ;;
    esac
  done | grep -c '[^[:space:]]'
}
lib=$(count $(git ls-files riff headers reader odml writer extensions repair include | grep -E '\.(cpp|h)$'))
tools=$(count $(git ls-files tools | grep -E '\.(cpp|h)$'))
bf=$(count $(git ls-files bench fuzz | grep -E '\.(cpp|h|c)$'))
tests=$(count $(git ls-files tests | grep -E '\.(cpp|h|c|sh|py)$'))
all=$((lib+tools+bf+tests))
printf "library %d  tool %d  bench+fuzz %d  tests %d  all %d  tests share %.1f%%\n" "$lib" "$tools" "$bf" "$tests" "$all" "$(awk "BEGIN { print 100 * $tests / $all }")"
