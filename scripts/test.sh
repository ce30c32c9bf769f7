#!/bin/sh
# test.sh: builds the release and runs its quick tests, some minutes in all.
# test.sh all: these, the long tests of the release, every test with the address and
# undefined-behaviour sanitizers and with the thread sanitizer, hostile input for 20 seconds for each
# reader, and the checks of lint.sh. Quick tests that have passed for this very build aren't run again.
# Fails on a failed test, on a finding and on a compiler warning.
set -eu

. "$(dirname "$0")/common.sh"

with_usual_layout "$@"

passed=$root/build/release/quick-tests-passed

# True where nothing that the quick tests run on has changed since they passed.
have_passed() {
  [ -f "$passed" ] && [ -z "$(find "$root/build/release/agent" "$root/build/release/examples" \
    "$root/build/release/tests" "$root/tests" "$root/examples" "$root/scripts" \
    -type f -newer "$passed" ! -name '*.cmake' -print -quit)" ]
}

# build_tests PRESET
build_tests() {
  case $1 in
    release) bench=ON ;;
    *) bench=OFF ;;
  esac
  if ! configure "$1" -DMTF_TESTS=ON -DMTF_BENCH="$bench" || ! build "$1"; then exit 1; fi
}

# run_tests TITLE PRESET [OPTION...]: shows the closing lines, or everything where a test fails.
run_tests() {
  echo "Testing ($1)"
  shift
  log=$(mktemp)
  if ASAN_OPTIONS=detect_leaks=1 ctest --preset "$@" -j"$(nproc)" --output-on-failure >"$log" 2>&1; then
    sed -n '/tests passed/,$p' "$log"
    rm -f "$log"
  else
    cat "$log"
    rm -f "$log"
    return 1
  fi
}

quick_tests() {
  build_tests release
  if have_passed; then
    echo "The quick tests have passed for this build."
    return
  fi
  rm -f "$passed"
  started=$(mktemp)
  run_tests "release, quick tests" release -LE extra || {
    echo "Tests failed."
    return 1
  }
  mv "$started" "$passed"
}

all_tests() {
  failed=
  "$root/scripts/lint.sh" || failed=" lint"
  quick_tests || failed="$failed release"
  run_tests "release, long tests" release -L extra || failed="$failed release-extra"
  for preset in asan tsan; do
    build_tests "$preset"
    run_tests "$preset" "$preset" || failed="$failed $preset"
  done
  if [ -n "$failed" ]; then
    echo "Tests failed:$failed"
    return 1
  fi
  "$root/scripts/package.sh"
  "$root/scripts/fuzz.sh" 20
}

case "$*" in
  "") run=quick_tests ;;
  all) run=all_tests ;;
  *)
    echo "usage: test.sh [all]" >&2
    exit 2
    ;;
esac
install_packages "$root/scripts/packages.txt" "$root/scripts/packages-test.txt"
cd "$root"
"$run"
echo "All of these tests passed."
