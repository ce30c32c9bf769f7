# shellcheck shell=bash
# Shared by the benchmark scripts: a scratch directory in memory, trees of files, medians of runs.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
agent=$root/build/release/agent/mtf-agent
[ -x "$agent" ] || { echo "build the release preset first: ./scripts/run.sh --help" >&2; exit 2; }

# scratch: makes a directory in memory that goes when the script ends, as $work.
scratch() {
  work=$(mktemp -d "${BENCH_DIR:-/dev/shm}/mtf-bench.XXXXXX")
  trap 'rm -rf "$work"' EXIT
  [ "$(stat -f -c %T "$work")" = tmpfs ] || echo "note: $work is not in memory" >&2
}

# small_tree DIR COUNT: COUNT files of 0 to 16 KiB, 100 to a directory.
small_tree() {
  perl -e '
    use strict; my ($dir, $count) = @ARGV; srand(1); mkdir $dir or die $!;
    my $text = join "", map { chr(32 + int rand 95) } 1 .. 16384;
    for my $i (0 .. $count - 1) {
      my $sub = sprintf "%s/d%05d", $dir, $i / 100;
      mkdir $sub if $i % 100 == 0;
      open my $file, ">", sprintf("%s/file%07d.txt", $sub, $i) or die $!;
      print $file substr $text, 0, int rand 16384;
    }' "$1" "$2"
}

# seconds COMMAND...: runs it with its output dropped and prints the wall time.
seconds() {
  local start end
  start=$(date +%s%N)
  "$@" >"$work/output" 2>&1 || { cat "$work/output" >&2; return 1; }
  end=$(date +%s%N)
  echo $(((end - start) / 1000)) | awk '{printf "%.3f\n", $1 / 1e6}'
}

# median < one number a line
median() { sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

# largest COMMAND...: runs it and prints its largest resident size in MB.
largest() {
  perl -e '
    use strict; my $pid = fork; if (!$pid) { open STDOUT, ">", "/dev/null"; exec @ARGV or die $! }
    my $most = 0;
    while (waitpid($pid, 1) == 0) {
      if (open my $status, "<", "/proc/$pid/status") {
        while (<$status>) { $most = $1 if /^VmHWM:\s+(\d+)/ && $1 > $most }
      }
      select undef, undef, undef, 0.02;
    }
    die "failed\n" if $? != 0; printf "%.1f\n", $most / 1024;' "$@"
}

# ratio A B
ratio() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.2f\n", a / b}'; }
