#!/usr/bin/env bash
# An incremental job over a tree that didn't change, against GNU tar's --listed-incremental, in turn
# in the same run: wall times, their medians and the ratio. Then how the time and the largest
# resident size grow with the tree.
#   bench/incremental.sh [--runs N] [--grow]
# --grow also measures a tree of 300,000 files (5 GB of memory).
# BENCH_DIR names another directory than /dev/shm.
# shellcheck disable=SC2046 # job prints one word for each argument
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

runs=5
grow=no
while [ $# -gt 0 ]; do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    --grow) grow=yes; shift ;;
    *) echo "usage: bench/incremental.sh [--runs N] [--grow]" >&2; exit 2 ;;
  esac
done

scratch

job() { # job COMMAND TREE CHANNELS
  echo "$agent" "$1" --plain --quiet --source "$2" --storage "$work/storage" --name bench \
    --channels "$3" --threads 1 --tmp "$work/tmp"
}

# What both compare with: a full job, and an archive with its snapshot of the tree.
begin() { # begin TREE CHANNELS
  rm -rf "$work/storage" "$work/base.snar"
  seconds $(job full "$1" "$2") >/dev/null
  seconds tar cf /dev/null --listed-incremental="$work/base.snar" -C "$work" \
    "$(basename "$1")" >/dev/null
}

save() { # save TREE CHANNELS
  seconds $(job incremental "$1" "$2") --base 1
}

# tar writes its snapshot anew, so each run starts from a copy.
archive() { # archive TREE
  cp "$work/base.snar" "$work/next.snar"
  seconds tar cf "$work/bench.tar" --listed-incremental="$work/next.snar" -C "$work" \
    "$(basename "$1")"
}

compare() { # compare LABEL TREE CHANNELS
  local ours=() theirs=() i a b
  begin "$2" "$3"
  for ((i = 0; i < runs; i++)); do
    ours+=("$(save "$2" "$3")")
    theirs+=("$(archive "$2")")
  done
  a=$(printf '%s\n' "${ours[@]}" | median)
  b=$(printf '%s\n' "${theirs[@]}" | median)
  printf '%-24s channels %d  mtf %6.3f s  tar %6.3f s  ratio %s  resident %s MB  (mtf: %s; tar: %s)\n' \
    "$1" "$3" "$a" "$b" "$(ratio "$a" "$b")" "$(largest $(job incremental "$2" "$3") --base 1)" \
    "${ours[*]}" "${theirs[*]}"
  last=$a
}

small_tree "$work/small" 30000
for channels in 1 2; do compare "30,000 small files" "$work/small" "$channels"; done
rm -rf "$work/small"

if [ "$grow" = yes ]; then
  small_tree "$work/large" 300000
  before=$last
  compare "300,000 small files" "$work/large" 2
  printf 'ten times the files take %s times the time\n' "$(ratio "$last" "$before")"
fi
