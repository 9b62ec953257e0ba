#!/usr/bin/env bash
# Format, includes, catalogue, headers, exports, binary interface, lint, sanitizers, coverage and short fuzz
# runs. Stops at the first failure.
#
# usage: tools/check.sh [format|includes|catalogue|headers|exports|abi|lint|asan|tsan|coverage|fuzz ...]   (no argument: all)
#        tools/check.sh accept-abi
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${JOBS:-$(nproc)}
library=platforms/common/optics/ots
services=platforms/common/services/include

sources() { git ls-files '*.c' '*.h' '*.cpp' '*.hpp'; }

check_format() {
  sources | xargs clang-format-14 --dry-run -Werror
}

check_lint() {
  cmake --preset release >/dev/null
  cmake --build --preset release --target trace_catalogue >/dev/null
  git ls-files "$library/src/*.cpp" | xargs -P "$jobs" -n 4 clang-tidy-14 --quiet -p build 2>/dev/null
}

check_catalogue() {
  python3 tools/trace_catalogue.py --source $library/src
}

# Nothing includes what stands above or beside it.
check_includes() {
  python3 tools/check_includes.py
}

# The exported headers stand alone, as C and as C++, with every warning on.
check_headers() {
  local header
  for header in $library/include/lum.h $services/*.h; do
    gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c -I$services "$header"
    g++ -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c++ -I$services "$header"
  done
}

# The shared object gives exactly what its version script names.
check_exports() {
  build_library
  diff <(nm -D --defined-only build/$library/liblum.so | awk '$2 != "A" {sub(/@.*/, "", $3); print $3}' | sort) \
       <(sed -n 's/^ *\([a-z_0-9]*\);$/\1/p' $library/liblum.map | sort) >&2
}

build_library() {
  cmake --preset release >/dev/null
  cmake --build --preset release --target lum >/dev/null
}

# What programs built against an earlier liblum rely on is as it was: names, arguments, layouts. An
# intended change is taken over with `tools/check.sh accept-abi` and told in CHANGELOG.md.
check_abi() {
  build_library
  abidiff --exported-interfaces-only $library/liblum.abi build/$library/liblum.so >&2 || {
    echo "the binary interface has changed" >&2
    return 1
  }
  local change
  change=$(git log -1 --format=%H -- $library/liblum.abi 2>/dev/null) || return 0
  [ -z "$change" ] || git show --format= --name-only "$change" -- CHANGELOG.md | grep -q . || {
    echo "the binary interface was changed without a word in CHANGELOG.md" >&2
    return 1
  }
}

check_accept-abi() {
  build_library
  abidw --exported-interfaces-only --no-corpus-path --no-show-locs --no-comp-dir-path \
    --no-parameter-names --out-file $library/liblum.abi build/$library/liblum.so
}

check_sanitizer() {
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1" -j "$jobs"
  ctest --preset "$1" -j "$jobs"
}
check_asan() { check_sanitizer asan; }
check_tsan() { check_sanitizer tsan; }

check_fuzz() {
  cmake --preset fuzz >/dev/null
  cmake --build --preset fuzz -j "$jobs"
  local work fuzzer
  work=$(mktemp -d)
  for fuzzer in build/fuzz/fuzz_*; do
    [ -x "$fuzzer" ] && [ -f "$fuzzer" ] || continue
    mkdir "$work/corpus"
    if ! "$fuzzer" -max_total_time="${FUZZ_SECONDS:-10}" -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix=build/fuzz/ "$work/corpus" >"$work/log" 2>&1; then
      cat "$work/log" >&2
      return 1
    fi
    echo "$(basename "$fuzzer"): $(awk '/number_of_executed_units/ {print $2}' "$work/log") runs"
    rm -rf "$work/corpus"
  done
  rm -rf "$work"
}

# The unit tests run the library's lines.
check_coverage() {
  cmake --preset coverage >/dev/null
  find build/coverage -name '*.gcda' -delete
  cmake --build --preset coverage -j "$jobs" --target unit_tests
  ctest --preset coverage -L unit -j "$jobs"
  gcovr --root . --filter "$library/src/" --fail-under-line 98 build/coverage
}

steps=("$@")
[ ${#steps[@]} -gt 0 ] || steps=(format includes catalogue headers exports abi lint asan tsan coverage fuzz)
for step in "${steps[@]}"; do
  echo "== $step"
  "check_$step"
done
echo "== every check held"
