#!/usr/bin/env bash
# A full plain job against GNU tar, in turn in the same run: wall times, their medians and the ratio.
#   bench/compare.sh [--runs N] [--memory]
# --memory also measures the largest resident size on a tree of 1,000,000 files (6 GB of memory),
# with the plain walk and with the agent's own choice of threads.
# BENCH_DIR names another directory than /dev/shm.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

runs=5
memory=no
while [ $# -gt 0 ]; do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    --memory) memory=yes; shift ;;
    *) echo "usage: bench/compare.sh [--runs N] [--memory]" >&2; exit 2 ;;
  esac
done

scratch

save() { # save TREE CHANNELS
  rm -rf "$work/storage"
  seconds "$agent" full --plain --quiet --source "$1" --storage "$work/storage" --name bench \
    --channels "$2" --threads 1 --tmp "$work/tmp"
}

archive() { # archive TREE
  rm -f "$work/bench.tar"
  seconds tar cf "$work/bench.tar" -C "$(dirname "$1")" "$(basename "$1")"
}

# In turn, so that whatever else the machine does meets both alike.
compare() { # compare LABEL TREE CHANNELS
  local ours=() theirs=() i
  for ((i = 0; i < runs; i++)); do
    ours+=("$(save "$2" "$3")")
    rm -rf "$work/storage"
    theirs+=("$(archive "$2")")
    rm -f "$work/bench.tar"
  done
  local a b
  a=$(printf '%s\n' "${ours[@]}" | median)
  b=$(printf '%s\n' "${theirs[@]}" | median)
  printf '%-28s channels %d  mtf %6.3f s  tar %6.3f s  ratio %s  (mtf: %s; tar: %s)\n' \
    "$1" "$3" "$a" "$b" "$(ratio "$a" "$b")" "${ours[*]}" "${theirs[*]}"
}

small_tree "$work/small" 30000
for channels in 1 2; do compare "30,000 small files" "$work/small" "$channels"; done
rm -rf "$work/small"

mkdir "$work/large"
for i in 1 2 3; do head -c 700M /dev/urandom >"$work/large/file$i"; done
for channels in 1 2; do compare "3 files of 700 MB" "$work/large" "$channels"; done
rm -rf "$work/large"

if [ "$memory" = yes ]; then
  perl -e '
    my ($dir) = @ARGV; mkdir $dir or die $!;
    for my $i (0 .. 999_999) {
      my $sub = sprintf "%s/d%04d", $dir, $i / 1000;
      mkdir $sub if $i % 1000 == 0;
      open my $file, ">", "$sub/f$i" or die $!; print $file $i;
    }' "$work/many"
  most() { # most OPTIONS...
    rm -rf "$work/storage"
    largest "$agent" full --plain --quiet --source "$work/many" --storage "$work/storage" \
      --name bench --tmp "$work/tmp" "$@"
  }
  plain=$(most --threads 1)
  printf 'largest resident size on 1,000,000 files: %s MB with --threads 1, %s MB without\n' \
    "$plain" "$(most)"
fi
