#!/usr/bin/env bash
# Every row of the table in docs/performance.md: whole jobs against GNU tar, in turn in the same run,
# the medians of their wall times, the ratio and the aim.
#   bench/table.sh [--runs N] [--cold DIR]
# --cold names a directory on a disk and adds the rows with a cold cache, which need root. BENCH_DIR
# names another directory than /dev/shm for all else. The agent syncs its pieces, tar syncs nothing;
# both write to memory, where that makes no difference.
# shellcheck disable=SC2317  # the sides of a row are called by their names
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

runs=7
cold=
while [ $# -gt 0 ]; do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    --cold) cold=$2; shift 2 ;;
    *) echo "usage: bench/table.sh [--runs N] [--cold DIR]" >&2; exit 2 ;;
  esac
done

if [ -n "$cold" ] && ! { [ -d "$cold" ] && [ -w /proc/sys/vm/drop_caches ]; }; then
  echo "--cold needs a directory on a disk, and root" >&2
  exit 2
fi
scratch

# deep_tree DIR: 30,000 files of 0 to 16 KiB in 11,500 directories, 3 to a leaf.
deep_tree() {
  perl -e '
    use strict; my ($dir) = @ARGV; srand(1); mkdir $dir or die $!;
    my $text = join "", map { chr(32 + int rand 95) } 1 .. 16384;
    my $i = 0;
    for my $top (map { sprintf "%s/top%04d", $dir, $_ } 0 .. 499) {
      mkdir $top or die $!;
      for my $sub (map { "$top/sub$_" } 0 .. 1) {
        mkdir $sub or die $!;
        for my $leaf (map { sprintf "%s/leaf%02d", $sub, $_ } 0 .. 9) {
          mkdir $leaf or die $!;
          for (1 .. 3) {
            open my $file, ">", sprintf("%s/file%07d.txt", $leaf, $i++) or die $!;
            print $file substr $text, 0, int rand 16384;
          }
        }
      }
    }' "$1"
}

# two_attributes DIR: gives each file below it 2 attributes.
two_attributes() {
  python3 - "$1" <<'PYTHON'
import os, sys
for path, _, names in os.walk(sys.argv[1]):
    for name in names:
        for i in range(2):
            os.setxattr(os.path.join(path, name), f"user.attribute{i}", b"value" * 10)
PYTHON
}

job() { # job full|incremental TREE OPTIONS...
  local command=$1 tree=$2
  shift 2
  "$agent" "$command" --quiet --source "$tree" --storage "$work/storage" --name bench \
    --tmp "$work/tmp" "$@"
}

drop_caches() {
  sync
  echo 3 >/proc/sys/vm/drop_caches
}

# Times `ours` and `theirs`, which get the tree, in turn, so that whatever else the machine does meets
# both alike; what `prepare` does ahead of each isn't timed.
row() { # row LABEL AIM TREE
  local mine=() tars=() i a b
  for ((i = 0; i < runs; i++)); do
    prepare
    mine+=("$(seconds ours "$3")")
    prepare
    tars+=("$(seconds theirs "$3")")
    rm -f "$work/bench.tar"
  done
  a=$(printf '%s\n' "${mine[@]}" | median)
  b=$(printf '%s\n' "${tars[@]}" | median)
  printf '%-58s mtf %6.3f s  tar %6.3f s  ratio %s  aim %s\n' "$1" "$a" "$b" "$(ratio "$a" "$b")" \
    "$2"
}

anew() { rm -rf "$work/storage"; }
prepare() { anew; }

theirs() { tar cf "$work/bench.tar" -C "$(dirname "$1")" "$(basename "$1")"; }

plain_rows() { # plain_rows LABEL TREE AIM_1 AIM_2
  ours() { job full "$1" --plain --threads 1; }
  row "plain, $1, 1 channel" "$3" "$2"
  [ $# -lt 4 ] && return
  ours() { job full "$1" --plain --channels 2 --threads 1; }
  row "the same, 2 channels" "$4" "$2"
}

deep_tree "$work/deep"
plain_rows "30,000 files in 11,500 directories" "$work/deep" 1.0 0.75
for threads in 2 4; do
  ours() { job full "$1" --plain --threads "$threads"; }
  row "the same, 1 channel, $threads scanning threads" none "$work/deep"
done
small_tree "$work/flat" 30000
plain_rows "30,000 files in 300 directories" "$work/flat" 1.0 0.7

mkdir "$work/large"
for i in 1 2 3; do head -c 400M /dev/urandom >"$work/large/file$i"; done
plain_rows "3 files of 400 MB" "$work/large" 0.9
rm -rf "$work/large"

theirs() {
  tar --xattrs --acls --sparse -cf "$work/bench.tar" -C "$(dirname "$1")" "$(basename "$1")"
}
ours() { job full "$1" --threads 1; }
row "records, 30,000 files in 11,500 directories" 1.0 "$work/deep"
small_tree "$work/attributes" 20000
two_attributes "$work/attributes"
row "records, 20,000 files with 2 attributes each" 0.9 "$work/attributes"
rm -rf "$work/attributes"

theirs() {
  tar cf - -C "$(dirname "$1")" "$(basename "$1")" | zstd -1 -q -o "$work/bench.tar"
}
for channels in 2 1; do
  ours() { job full "$1" --plain --compression zstd --channels "$channels" --threads 1; }
  row "zstd level 1, $channels channel(s), against tar in a pipe" \
    "$([ "$channels" = 2 ] && echo 0.7 || echo 0.9)" "$work/flat"
done

# tar writes its snapshot anew, so each run starts from a copy.
anew
job full "$work/deep" --plain --threads 1 >/dev/null
tar cf /dev/null --listed-incremental="$work/base.snar" -C "$work" deep
prepare() { cp "$work/base.snar" "$work/next.snar"; }
ours() { job incremental "$1" --plain --threads 1 --base 1; }
theirs() {
  tar cf "$work/bench.tar" --listed-incremental="$work/next.snar" -C "$(dirname "$1")" \
    "$(basename "$1")"
}
row "unchanged incremental, against tar -g" 0.6 "$work/deep"

if [ -n "$cold" ]; then
  disk=$(mktemp -d "$cold/mtf-bench.XXXXXX")
  trap 'rm -rf "$work" "$disk"' EXIT
  [ "$(stat -f -c %T "$disk")" != tmpfs ] || echo "note: $cold is in memory" >&2
  deep_tree "$disk/deep"
  prepare() { anew; drop_caches; }
  theirs() { tar cf "$work/bench.tar" -C "$(dirname "$1")" "$(basename "$1")"; }
  ours() { job full "$1" --plain --threads 1; }
  row "cold cache, 11,500 directories on a disk, 1 channel" 0.5 "$disk/deep"
  ours() { job full "$1" --plain --channels 4 --threads 4; }
  row "the same, 4 channels and threads" 0.45 "$disk/deep"

  # On the way back the pieces are cold, and what is restored goes to memory.
  rm -rf "$work/storage"
  job full "$disk/deep" --plain --channels 2 >/dev/null
  mv "$work/storage" "$disk/storage"
  tar cf "$disk/bench.tar" -C "$disk" deep
  prepare() { rm -rf "$work/restored"; mkdir "$work/restored"; drop_caches; }
  ours() { "$agent" restore --storage "$disk/storage" --name bench --to "$work/restored"; }
  theirs() { tar xf "$disk/bench.tar" -C "$work/restored"; }
  row "restore of cold pieces, 30,000 files" none "$disk/deep"
  ours() { "$agent" verify --quiet --storage "$disk/storage" --name bench; }
  theirs() { cksum "$disk"/storage/*; }
  row "verify of cold pieces, against cksum of them" none "$disk/deep"
fi
