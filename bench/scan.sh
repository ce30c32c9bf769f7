#!/usr/bin/env bash
# Walking alone: a job's walk whose blocks are dropped at once, with several threads against the
# plain walk and against find, in turn in the same run; then the heap that 1,000,000 entries take.
#   bench/scan.sh [--runs N] [--threads N]
# BENCH_DIR names another directory than /dev/shm.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
scan=$root/build/release/bench/bench_scan

runs=5
threads=2
while [ $# -gt 0 ]; do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    --threads) threads=$2; shift 2 ;;
    *) echo "usage: bench/scan.sh [--runs N] [--threads N]" >&2; exit 2 ;;
  esac
done

scratch

# entry_tree DIR COUNT: COUNT entries, of which every hundredth is a directory, 10 to a directory.
entry_tree() {
  perl -e '
    use strict; my ($dir, $count) = @ARGV; mkdir $dir or die $!;
    my $sub;
    for my $i (0 .. $count / 100 - 1) {
      my $above = sprintf "%s/d%04d", $dir, $i / 10;
      mkdir $above if $i % 10 == 0;
      $sub = $i % 10 == 0 ? $above : sprintf "%s/sub%05d", $above, $i;
      mkdir $sub;
      for my $j (1 .. 99) {
        open my $file, ">", sprintf("%s/file%05d.%02d.txt", $sub, $i, $j) or die $!;
      }
    }' "$1" "$2"
}

walk() { "$scan" walk "$work/tree" "$1" "$work/cache" | cut -d' ' -f1; }

entry_tree "$work/tree" 300000
ours=() plain=() find=()
for ((i = 0; i < runs; i++)); do
  ours+=("$(walk "$threads")")
  plain+=("$(walk 1)")
  find+=("$(seconds find "$work/tree" -printf '%s %T@')")
done
a=$(printf '%s\n' "${ours[@]}" | median)
b=$(printf '%s\n' "${plain[@]}" | median)
c=$(printf '%s\n' "${find[@]}" | median)
printf '300,000 entries: %d threads %.3f s, plain walk %.3f s (ratio %s), find %.3f s (ratio %s)\n' \
  "$threads" "$a" "$b" "$(ratio "$a" "$b")" "$c" "$(ratio "$a" "$c")"
printf '  %d threads: %s\n  plain: %s\n  find: %s\n' \
  "$threads" "${ours[*]}" "${plain[*]}" "${find[*]}"
rm -rf "$work/tree"

entry_tree "$work/tree" 1000000
printf '1,000,000 entries: %s MB of heap\n' "$("$scan" heap "$work/tree" "$threads" "$work/cache")"
