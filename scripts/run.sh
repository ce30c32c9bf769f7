#!/bin/sh
# Builds mtf-agent, with the Debian packages it needs, and runs it with the given arguments.
set -eu

. "$(dirname "$0")/common.sh"

install_packages "$root/scripts/packages.txt"
# The tests need packages of their own, so that a first build leaves them out.
if [ ! -f "$root/build/release/build.ninja" ]; then
  configure release -DMTF_TESTS=OFF -DMTF_BENCH=OFF
fi
build release mtf-agent
exec "$root/build/release/agent/mtf-agent" "$@"
