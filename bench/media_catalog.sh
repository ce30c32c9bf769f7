#!/usr/bin/env bash
# What the catalog on each media costs: the time of its entries against the time of a whole job.
#   bench/media_catalog.sh [FILES]
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

count=${1:-100000}
program=$root/build/release/bench/bench_media_catalog
[ -x "$program" ] || { echo "build the release preset with MTF_BENCH first" >&2; exit 2; }
scratch
small_tree "$work/tree" "$count"
mkdir "$work/tmp"
"$program" "$work/tree" "$work/tmp" "$count"
