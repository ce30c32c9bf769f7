#!/usr/bin/env bash
# Sources through a host's callbacks against the same sources from the file system, in turn in the
# same run: wall times, their medians and the ratio.
#   bench/callback.sh [--runs N]
# BENCH_DIR names another directory than /dev/shm.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
host=$root/build/release/examples/lister_host
archive_host=$root/build/release/examples/archive_host

runs=5
[ "${1:-}" = --runs ] && runs=$2

scratch
mkdir "$work/pieces"

through_files() { # through_files TREE CHANNELS
  rm -rf "$work/storage"
  seconds "$agent" full --plain --quiet --source "$1" --storage "$work/storage" --name bench \
    --channels "$2" --threads 1 --tmp "$work/tmp"
}

through_host() { # through_host TREE CHANNELS; $work/list names what is in the tree
  rm -f "$work/pieces"/*
  seconds sh -c '"$2" -0 "$3" bench "$4" <"$1"' - "$work/list" "$host" "$work/pieces" "$2"
}

through_find() { # the same with the time of the program that names the files
  rm -f "$work/pieces"/*
  seconds sh -c 'find "$1" -print0 | "$2" -0 "$3" bench "$4"' - "$1" "$host" "$work/pieces" "$2"
}

# In turn, so that whatever else the machine does meets both alike.
compare() { # compare LABEL TREE CHANNELS
  local ours=() theirs=() found=() i a b c
  find "$2" -print0 >"$work/list"
  for ((i = 0; i < runs; i++)); do
    ours+=("$(through_host "$2" "$3")")
    theirs+=("$(through_files "$2" "$3")")
    found+=("$(through_find "$2" "$3")")
  done
  a=$(printf '%s\n' "${ours[@]}" | median)
  b=$(printf '%s\n' "${theirs[@]}" | median)
  c=$(printf '%s\n' "${found[@]}" | median)
  printf '%-24s channels %d  callbacks %6.3f s  files %6.3f s  ratio %s, with find %s  (%s; %s; %s)\n' \
    "$1" "$3" "$a" "$b" "$(ratio "$a" "$b")" "$(ratio "$c" "$b")" "${ours[*]}" "${theirs[*]}" \
    "${found[*]}"
}

small_tree "$work/small" 30000
for channels in 1 2; do compare "30,000 small files" "$work/small" "$channels"; done
tar cf "$work/small.tar" -C "$work" small
rm -rf "$work/small"
rm -f "$work/pieces"/*
echo "the same from a tar file: $(seconds "$archive_host" "$work/small.tar" "$work/pieces" bench) s"
rm -f "$work/pieces"/* "$work/small.tar"

mkdir "$work/large"
for i in 1 2; do head -c 500M /dev/urandom >"$work/large/file$i"; done
for channels in 1 2; do compare "2 files of 500 MB" "$work/large" "$channels"; done
