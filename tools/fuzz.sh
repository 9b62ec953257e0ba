#!/usr/bin/env bash
# Runs fuzzers of the build of asan, each from its corpus in tests/fuzz/corpora if it has one, as
# many side by side as there are processors. What one finds stays in build/asan/found.
#
# usage: tools/fuzz.sh [--grow] [NAME ...]   (no name: all)
#        --grow   looks for inputs of up to 1 KiB, and puts those that reach further into the
#                 corpora, of which as few and as small inputs stay as reach as far; without a name,
#                 into those that are there
#
# FUZZ_SECONDS   how long each runs, 10 unless set; 60 with --grow
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${JOBS:-$(nproc)}
corpora=tests/fuzz/corpora
found=build/asan/found
grow=no
if [ "${1:-}" = --grow ]; then
  grow=yes
  shift
fi

names() {
  if [ $# -gt 0 ]; then
    printf '%s\n' "$@"
  elif [ $grow = yes ]; then
    ls $corpora
  else
    find build/asan -maxdepth 1 -name 'fuzz_*' -type f -executable -printf '%f\n' | sed 's/^fuzz_//' | sort
  fi
}

run() {
  local name=$1 work tried failed=0 bound=()
  [ $grow = no ] || bound=(-max_len=1024)  # of inputs that are there too, which are kept whole
  [ -x "build/asan/fuzz_$name" ] || {
    echo "fuzz: there is no fuzzer $name: no build/asan/fuzz_$name" >&2
    return 1
  }
  work=$(mktemp -d)
  mkdir -p "$work/corpus" "$work/grown" $found
  if [ -d "$corpora/$name" ]; then cp -r "$corpora/$name/." "$work/corpus"; fi
  "build/asan/fuzz_$name" -max_total_time="$seconds" -timeout=120 -rss_limit_mb=2048 -print_final_stats=1 \
    ${bound[@]+"${bound[@]}"} -artifact_prefix="$found/$name-" "$work/corpus" >"$work/log" 2>&1 || failed=1
  tried=$(awk '/^stat::number_of_executed_units/ { print $2 }' "$work/log")
  if [ $failed = 1 ]; then
    tell_of_failure "$name" "$work/log" "$tried"
  else
    echo "fuzz $name: $tried inputs tried, $tried survived"
    [ $grow = no ] || take_over "$name" "$work" || failed=1
  fi
  rm -rf "$work"
  return $failed
}

# A fuzzer stops at the first input that fails and writes it to a file; one that fails before it
# has begun writes none.
tell_of_failure() {
  local name=$1 log=$2 input
  tail -n 100 "$log" >&2
  input=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
  if [ -n "$input" ]; then
    echo "fuzz $name: ${3:-an unknown number of} inputs tried, the last did not survive, kept as $input; again: build/asan/fuzz_$name $input" >&2
  else
    cp "$log" "$found/$name.log"
    echo "fuzz $name: failed without an input; all it said is in $found/$name.log" >&2
  fi
}

# Replaces the corpus by the fewest of its inputs and of the new ones, smallest first.
take_over() {
  local name=$1 work=$2 input from=("$2/corpus")
  [ ! -d "$corpora/$name" ] || from=("$corpora/$name" "${from[@]}")
  "build/asan/fuzz_$name" -merge=1 -rss_limit_mb=2048 "$work/grown" "${from[@]}" >"$work/log" 2>&1 || {
    tail -n 100 "$work/log" >&2
    echo "fuzz $name: its corpus cannot be merged and stays as it was" >&2
    return 1
  }
  rm -rf "${corpora:?}/$name"
  mkdir -p "$corpora/$name"
  for input in "$work"/grown/*; do  # by its hash, of which the beginning tells enough
    cp "$input" "$corpora/$name/$(basename "$input" | cut -c 1-12)"
  done
  echo "fuzz $name: $corpora/$name has $(find "$corpora/$name" -type f | wc -l) inputs, $(cat "$corpora/$name"/* | wc -c) bytes"
}

seconds=${FUZZ_SECONDS:-$([ $grow = yes ] && echo 60 || echo 10)}
export corpora found grow seconds
export -f run tell_of_failure take_over
names "$@" | xargs -P "$jobs" -n 1 bash -c 'set -u; run "$1"' -
