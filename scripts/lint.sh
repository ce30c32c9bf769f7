#!/bin/sh
# Checks everything that needs no test run: formatting, shell scripts, spelling and, with `all`, the
# faults that clang-tidy finds in the library and the agent (some minutes).
#   lint.sh [all]
set -eu

. "$(dirname "$0")/common.sh"

# The language's own words and the fixed texts of the library that a dictionary doesn't know.
known_words="$root/scripts/known-words.txt"

install_packages "$root/scripts/packages.txt" "$root/scripts/packages-lint.txt"
cd "$root"
echo "Checking (format, scripts, spelling)"
git ls-files -z -- '*.cpp' '*.h' | xargs -0 clang-format-14 --dry-run --Werror
git ls-files -z -- '*.sh' .ci/run | xargs -0 shellcheck --severity=warning
git ls-files -z | xargs -0 codespell --ignore-words "$known_words"
if [ "${1:-}" = all ]; then
  echo "Checking (clang-tidy)"
  configure lint
  quietly run-clang-tidy-14 -p build/lint -quiet -j"$(nproc)" \
    '/(agent|mtf|oxbase|platform|services)/.*\.cpp$'
fi
