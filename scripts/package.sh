#!/bin/sh
# Makes the Debian packages mtf-agent, libmtf0 and libmtf-dev in build/release/packages and lets lintian
# look at them; an error that it finds fails the script.
set -eu

. "$(dirname "$0")/common.sh"

install_packages "$root/scripts/packages.txt" "$root/scripts/packages-lint.txt"
if [ ! -f "$root/build/release/build.ninja" ]; then
  configure release -DMTF_TESTS=OFF -DMTF_BENCH=OFF
fi
for target in mtf_static mtf_shared mtf-agent mtf_agent_pages; do build release "$target"; done
cd "$root/build/release"
rm -rf packages
quietly cpack -G DEB
rm -rf packages/_CPack_Packages
lintian --allow-root --fail-on error packages/*.deb
ls packages/*.deb
