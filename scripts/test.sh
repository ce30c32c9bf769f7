#!/bin/sh
# Builds and runs all tests three times: as released, with the address and undefined-behaviour
# sanitizers, and with the thread sanitizer; then feeds hostile input to the readers for a minute each.
# Fails on a failed test, on a finding and on a compiler warning.
set -eu

# The thread sanitizer needs the address space laid out as usual, where the machine allows to ask.
if [ -z "${MTF_USUAL_LAYOUT:-}" ] && setarch "$(uname -m)" -R true 2>/dev/null; then
  MTF_USUAL_LAYOUT=1 exec setarch "$(uname -m)" -R "$0" "$@"
fi

. "$(dirname "$0")/common.sh"

install_packages "$root/scripts/packages.txt" "$root/scripts/packages-test.txt"
cd "$root"
failed=
for preset in release asan tsan; do
  case $preset in
    release) bench=ON ;;
    *) bench=OFF ;;
  esac
  configure "$preset" -DMTF_TESTS=ON -DMTF_BENCH="$bench"
  build "$preset"
  echo "Testing ($preset)"
  log=$(mktemp)
  if ASAN_OPTIONS=detect_leaks=1 ctest --preset "$preset" -j2 --output-on-failure >"$log" 2>&1; then
    sed -n '/tests passed/,$p' "$log"
  else
    failed="$failed $preset"
    cat "$log"
  fi
  rm -f "$log"
done
if [ -n "$failed" ]; then
  echo "Tests failed:$failed"
  exit 1
fi
"$root/scripts/fuzz.sh" 60
echo "All tests passed."
