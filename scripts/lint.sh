#!/bin/sh
# Checks everything that needs no test run: formatting, shell scripts, spelling, and the library and the
# agent by clang-tidy. It reads the files of each of them as one, as the sanitizer builds read many as
# one: so each header is read once, and a name that two files define shows here.
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
echo "Checking (clang-tidy)"
rm -rf build/lint
configure lint
quietly run-clang-tidy-14 -p build/lint -quiet -j"$(nproc)" \
  -header-filter='/(agent|mtf|oxbase|platform|services)/[^ ]*$' '/Unity/unity_.*'
