#!/bin/sh
# Feeds hostile input to all that reads medias and catalogs: fuzz.sh [SECONDS [TARGET...]]
# Each target runs for SECONDS (60), two at a time. A finding fails the script; its file is kept.
set -eu

. "$(dirname "$0")/common.sh"

with_usual_layout "$@"

targets="media restore rebuild earlier_catalog catalog source_processor"
programs=$root/build/fuzz/fuzz
corpus=$root/build/fuzz/corpus
findings=$root/build/fuzz/findings

# The last of libFuzzer's own figures: edges, features and the number of inputs that reach them.
coverage() {
  sed -n 's/.* cov: \([0-9]*\) ft: \([0-9]*\) corp: \([0-9]*\).*/\1 edges, \2 features, \3 inputs/p' \
    "$1" | tail -1
}

statistic() {
  sed -n "s/^stat::$2: *//p" "$1"
}

# run_one SECONDS TARGET: keeps what it learned for the next run.
run_one() {
  # Memory that comes back soon is cheaper than fresh pages, and so is an allocation whose stack isn't kept.
  # Without -entropic=0 a third of the time goes into counting how rare each feature is.
  export ASAN_OPTIONS=quarantine_size_mb=1:thread_local_quarantine_size_kb=64
  ASAN_OPTIONS=$ASAN_OPTIONS:allocator_release_to_os_interval_ms=-1:malloc_context_size=1
  log=$root/build/fuzz/$2.log
  case $2 in
    media | restore | rebuild) seeds='jobs' ;;
    *) seeds='catalogs' ;;
  esac
  mkdir -p "$corpus/$2"
  # Where the restore's files go; one that crashes can't take them away.
  TMPDIR=$(mktemp -d "${TMPDIR:-/dev/shm}/mtf-fuzz.XXXXXX")
  export TMPDIR
  trap 'rm -rf "$TMPDIR"' EXIT
  if "$programs/fuzz_$2" -max_total_time="$1" -timeout=20 -rss_limit_mb=2048 -max_len=16384 \
    -print_final_stats=1 -entropic=0 -artifact_prefix="$findings/$2-" "$corpus/$2" "$corpus/seeds/$seeds" \
    >"$log" 2>&1; then
    echo "$2: $(statistic "$log" number_of_executed_units) executions," \
      "$(statistic "$log" average_exec_per_sec) a second, $(coverage "$log")"
    return
  fi
  tail -60 "$log" >&2
  found=$(sed -n 's/.*Test unit written to //p' "$log" | tail -1)
  echo "$2: FAILED; once more: $programs/fuzz_$2 ${found:-}" >&2
  exit 1
}

if [ "${1:-}" = --one ]; then
  run_one "$2" "$3"
  exit
fi

seconds=${1:-60}
if [ $# -gt 1 ]; then
  shift
  targets=$*
fi
install_packages "$root/scripts/packages.txt" "$root/scripts/packages-test.txt"
configure fuzz
build fuzz
rm -rf "$corpus/seeds"
mkdir -p "$findings"
"$root/fuzz/make_corpus.sh" "$root/build/fuzz" "$corpus/seeds"
echo "Fuzzing, $seconds seconds each"
# shellcheck disable=SC2086 # one argument for each target
if ! printf '%s\n' $targets | xargs -n 1 -P 2 "$0" --one "$seconds"; then
  echo "Fuzzing failed: the findings are in $findings"
  exit 1
fi
