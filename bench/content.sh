#!/usr/bin/env bash
# A full job of all that files have against GNU tar with --xattrs --acls --sparse, in turn in the
# same run: wall times, their medians and the ratio. Then a file of 100 GB with 10 MB of data in
# 1,000 stretches: time and size of saving it, and of bringing it back.
#   bench/content.sh [--runs N]
# BENCH_DIR names another directory than /dev/shm.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

runs=5
while [ $# -gt 0 ]; do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    *) echo "usage: bench/content.sh [--runs N]" >&2; exit 2 ;;
  esac
done

scratch

save() { # save TREE
  rm -rf "$work/storage"
  seconds "$agent" full --quiet --source "$1" --storage "$work/storage" --name bench \
    --threads 1 --tmp "$work/tmp"
}

archive() { # archive TREE
  rm -f "$work/bench.tar"
  seconds tar --xattrs --acls --sparse -cf "$work/bench.tar" -C "$(dirname "$1")" \
    "$(basename "$1")"
}

compare() { # compare LABEL TREE
  local ours=() theirs=() i a b
  for ((i = 0; i < runs; i++)); do
    ours+=("$(save "$2")")
    rm -rf "$work/storage"
    theirs+=("$(archive "$2")")
    rm -f "$work/bench.tar"
  done
  a=$(printf '%s\n' "${ours[@]}" | median)
  b=$(printf '%s\n' "${theirs[@]}" | median)
  printf '%-32s mtf %6.3f s  tar %6.3f s  ratio %s  (mtf: %s; tar: %s)\n' \
    "$1" "$a" "$b" "$(ratio "$a" "$b")" "${ours[*]}" "${theirs[*]}"
}

small_tree "$work/small" 30000
compare "30,000 small files" "$work/small"
python3 - "$work/small" <<'PYTHON'
import os, sys
for path, _, names in os.walk(sys.argv[1]):
    for name in names:
        for i in range(2):
            os.setxattr(os.path.join(path, name), f"user.attribute{i}", b"value" * 10)
PYTHON
compare "the same with 2 attributes each" "$work/small"
rm -rf "$work/small"

mkdir "$work/large"
for i in 1 2 3; do head -c 700M /dev/urandom >"$work/large/file$i"; done
compare "3 files of 700 MB" "$work/large"
rm -rf "$work/large"

mkdir "$work/sparse"
perl -e '
  open my $file, ">", $ARGV[0] or die $!;
  my $data = join "", map { chr int rand 256 } 1 .. 10_000;
  for my $i (0 .. 999) { sysseek $file, $i * 100_000_000, 0; syswrite $file, $data }
  truncate $file, 100_000_000_000;' "$work/sparse/file"
compare "100 GB with 10 MB of data" "$work/sparse"
save "$work/sparse" >/dev/null
printf 'its media: %s bytes; ' "$(stat -c %s "$work"/storage/*.mtf)"
printf 'restored in %s s' \
  "$(seconds "$agent" restore --storage "$work/storage" --name bench --to "$work/back")"
printf ', allocated %s KiB of %s KiB\n' "$(du -k "$work/back$work/sparse/file" | cut -f1)" \
  "$(du -k "$work/sparse/file" | cut -f1)"
