#!/usr/bin/env bash
# Format, includes, catalogue, headers, reference, exports, binary interface, presets, lint,
# sanitizers, coverage, attacks, the real kernel and short fuzz runs. Stops at the first failure.
#
# usage: tools/check.sh [STEP ...]   (no argument: all)
#        tools/check.sh fast         what takes no second build, over what has changed
#        tools/check.sh deb          the packages, which takes a whole build and root
#        tools/check.sh accept-abi
#        tools/check.sh accept-counts
#        tools/check.sh accept-screens
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${JOBS:-$(nproc)}
library=platforms/common/optics/ots
services=platforms/common/services/include
conformance=platforms/common/conformance

sources() { git ls-files '*.c' '*.h' '*.cpp' '*.hpp'; }

check_format() {
  sources | xargs clang-format-14 --dry-run -Werror
  # What says what it is run by can be run; scripts of a package's own are its tools' to run.
  git ls-files -s -- ':!packaging' | awk '$1 == "100644"' | cut -f2 | xargs awk 'FNR == 1 && /^#!/ { print FILENAME ": not executable" } { nextfile }' | report
}

# The analyser, most of the time, looks at the library here, and at whatever has changed in lint-changed.
check_lint() {
  prepare_lint
  git ls-files "$library/src/*.cpp" | lint
  git ls-files "$conformance/*.cpp" 'platforms/linux/*.cpp' 'client/*.cpp' | lint '--checks=-clang-analyzer-*'
}

# The commands of a build by clang, which cannot read what another compiler has precompiled.
prepare_lint() {
  local precompiled
  cmake --preset lint >/dev/null
  precompiled=$(ninja -C build/lint -t targets all | sed -n 's/^\(.*\.pch\): .*/\1/p')
  ninja -C build/lint -j "$jobs" --quiet project_scope trace_catalogue $precompiled
  [[ $(echo tools/lint/finding.cpp | lint) == *modernize-use-nullptr* ]] || {
    echo "the lint does not find what is wrong in tools/lint/finding.cpp" >&2
    return 1
  }
}

# One file a process: over several the analyser loses sight of va_start.
lint() {
  xargs -r -P "$jobs" -n 1 clang-tidy-14 --quiet -p build/lint --load=build/lint/project_scope.so "$@" 2>/dev/null
}

check_catalogue() {
  python3 tools/trace_catalogue.py --source $library/src --page docs/architecture.md
}

exported_headers() { find $library/include $services $conformance/include -name '*.h'; }
# Nothing includes what stands above or beside it.
check_includes() {
  python3 tools/check_includes.py
}

# The exported headers stand alone, as C and as C++, with every warning on.
check_headers() {
  local header
  for header in $(exported_headers); do
    gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c -I$library/include -I$services "$header"
    g++ -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c++ -I$library/include -I$services "$header"
  done
}

# The exported headers describe every call, argument, result, record and member.
check_reference() {
  doxygen docs/Doxyfile
  # A call that C programs are to find.
  exported_headers | xargs grep -lE '^[a-z].*\);$' | xargs grep -L 'extern "C"' | sed 's/$/: no extern "C"/' | report
  # Doxygen passes over a header without @file, and over what a callback type returns.
  exported_headers | xargs grep -L '@file' | sed 's/$/: no @file/' | report
  exported_headers | xargs awk '/^\/\*\*/ { result = 0 } /@return/ { result = 1 }
    /^typedef .*\(\*/ && !/^typedef void / && !result { print FILENAME ":" FNR ": no @return" }' | report
}

# Fails with what it is given, if anything.
report() {
  ! grep . >&2
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
  sed -i "s|='$PWD/|='|" $library/liblum.abi
}

# What can be counted exactly of a call's cost is as it was, give or take a tenth. The counts of what
# calls ask for are one of the tests too; those of instructions hang on the compiler.
check_counts() {
  build_counts
  build/lum_counts tests/counts/on_record.txt >&2
  python3 tests/counts/instructions.py build/lum_instructions tests/counts/instructions.txt >&2
}

check_accept-counts() {
  build_counts
  build/lum_counts --accept tests/counts/on_record.txt
  python3 tests/counts/instructions.py build/lum_instructions --accept tests/counts/instructions.txt
}

build_counts() {
  cmake --preset release >/dev/null
  cmake --build --preset release -j "$jobs" --target lum_counts lum_instructions >/dev/null
}

# The screens on the pages are what lumctl prints. It is one of the tests of the client too, which the
# step asan runs.
check_screens() {
  build_client
  python3 tools/refresh_screens.py --build build --check
}

check_accept-screens() {
  build_client
  python3 tools/refresh_screens.py --build build
}

build_client() {
  cmake --preset release >/dev/null
  cmake --build --preset release -j "$jobs" --target lumd lumctl lum-module-image >/dev/null
}

check_sanitizer() {
  cmake --preset "$1" >/dev/null
  find "build/$1" -name '*.gcda' -delete
  cmake --build --preset "$1" -j "$jobs"
  ctest --preset "$1" -j $((jobs * 2))  # tests of the client wait most of the time
}
check_asan() { check_sanitizer asan; }
check_tsan() { check_sanitizer tsan; }

# What the sanitizers' builds leave out, with what was tried and survived: some three minutes of
# schedules, every 20th allocation and every call on the store, and the driver without memory.
check_attacks() {
  build_client
  cmake --build --preset release -j "$jobs" --target schedules_test attacks_test lum_test_memory >/dev/null
  LUM_SCHEDULES=${LUM_SCHEDULES:-40000} build/schedules_test --gtest_filter='*whatever*' | grep -E 'tried|seed|FAILED|Failure' &
  local schedules=$!
  LUM_STORE_STRIDE=1 build/attacks_test | grep -E 'tried|FAILED|Failure'
  (cd tests/client && LUM_BUILD=$PWD/../../build python3 -m unittest -v test_without_memory 2>&1) | grep -vE '^$|^-'
  wait "$schedules"
}

# The fuzzers stand in the build of asan.
check_fuzz() {
  cmake --preset asan >/dev/null
  cmake --build --preset asan -j "$jobs" --target fuzzers
  tools/fuzz.sh
}

# The unit tests run the library's lines. Counted in what the step asan has left; by itself the step
# makes and runs the unit tests of that build.
check_coverage() {
  if [ -z "$(find build/asan/platforms/common -name '*.gcda' -print -quit 2>/dev/null)" ]; then
    cmake --preset asan >/dev/null
    cmake --build --preset asan -j "$jobs" --target unit_tests
    ctest --preset asan -L unit -j "$jobs"
  fi
  gcovr --gcov-executable 'llvm-cov-14 gcov' --root . --filter "$library/src/" --fail-under-line 98 build/asan/$library
}

# The driver on a real Linux kernel under QEMU.
check_kernel() {
  make --no-print-directory test-kernel
}

# The Debian packages, built and tried in a fresh Debian; no step of its own accord.
check_deb() {
  make --no-print-directory test-deb
}

# Every configuration in CMakePresets.json can be made.
check_presets() {
  local preset folder
  folder=$(mktemp -d)
  python3 -c 'import json; print("\n".join(p["name"] for p in json.load(open("CMakePresets.json"))["configurePresets"] if not p.get("hidden")))' |
    while read -r preset; do
      cmake --preset "$preset" -B "$folder/$preset" >"$folder/log" 2>&1 || {
        echo "the preset $preset cannot be configured" >&2
        cat "$folder/log" >&2
        exit 1
      }
    done || { rm -rf "$folder"; return 1; }
  rm -rf "$folder"
}

# The sources changed since the last commit, or by it.
changed_sources() {
  { git diff --name-only HEAD; git ls-files --others --exclude-standard; git show --format= --name-only HEAD; } |
    sort -u | grep -E "$1" | while read -r file; do [ -f "$file" ] && echo "$file"; done || true
}

check_lint-changed() {
  prepare_lint
  changed_sources "^($library/src|$conformance|platforms/linux)/.*\.cpp$" | lint
  changed_sources "^client/.*\.cpp$" | lint '--checks=-clang-analyzer-*'
}

fast_steps=(format includes catalogue headers reference exports abi lint-changed)
check_fast() { tools/check.sh "${fast_steps[@]}"; }

steps=("$@")
[ ${#steps[@]} -gt 0 ] || steps=(format includes catalogue headers reference exports abi presets counts lint asan tsan coverage attacks kernel fuzz)
times=()
for step in "${steps[@]}"; do
  declare -F "check_$step" >/dev/null || { echo "tools/check.sh: no step is called $step" >&2; exit 2; }
  echo "== $step"
  begun=$SECONDS
  "check_$step"
  times+=("$(printf '%6d s  %s' $((SECONDS - begun)) "$step")")
done
printf '%s\n' "${times[@]}"
echo "== every check held"
