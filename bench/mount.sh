#!/usr/bin/env bash
# Mounted jobs: `diff -r` of a job against its source, `tar` of the mount against `restore`, reads of
# 4 KiB here and there in a large file, and the memory of a job of many files. Needs /dev/fuse.
#   bench/mount.sh [--files N] [--large MB] [--many N]
# BENCH_DIR names another directory than /dev/shm.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

files=30000
large=1000
many=1000000
while [ $# -gt 0 ]; do
  case $1 in
    --files) files=$2; shift 2 ;;
    --large) large=$2; shift 2 ;;
    --many) many=$2; shift 2 ;;
    *) echo "usage: bench/mount.sh [--files N] [--large MB] [--many N]" >&2; exit 2 ;;
  esac
done

scratch
mkdir "$work/mount"
mounted=
trap '[ -z "$mounted" ] || kill "$mounted"; umount "$work/mount" 2>/dev/null; rm -rf "$work"' EXIT

save() { # save SOURCE OPTION...
  local source=$1
  shift
  rm -rf "$work/storage"
  "$agent" full --quiet --source "$source" --storage "$work/storage" --name bench \
    --tmp "$work/tmp" "$@"
}

many_files() { # many_files DIR COUNT: empty ones, 100 to a directory
  perl -e '
    use strict; my ($dir, $count) = @ARGV; mkdir $dir or die $!;
    for my $i (0 .. $count - 1) {
      my $sub = sprintf "%s/directory%05d", $dir, $i / 100;
      mkdir $sub if $i % 100 == 0;
      open my $f, ">", sprintf("%s/file number %07d.txt", $sub, $i) or die $!;
    }' "$1" "$2"
}

start() {
  "$agent" mount "$work/mount" --storage "$work/storage" --name bench >"$work/mount.log" &
  mounted=$!
  until [ -d "$work/mount/1" ]; do sleep 0.05; done
}

stop() {
  kill "$mounted"
  wait "$mounted"
  mounted=
}

# memory: the resident size of the mount now and at its largest, in MB.
memory() {
  awk '/^VmHWM|^VmRSS/ {printf "%s %.1f MB  ", $1, $2 / 1024} END {print ""}' "/proc/$mounted/status"
}

echo "== $files small files"
small_tree "$work/small" "$files"
cp -a "$work/small" "$work/copy"
save "$work/small"
start
a=$(seconds diff -r "$work/small" "$work/mount/1$work/small")
b=$(seconds diff -r "$work/small" "$work/copy")
echo "diff -r against the mount $a s, against a copy $b s"
memory
stop
start
rm -rf "$work/back"
b=$(seconds "$agent" restore --storage "$work/storage" --name bench --to "$work/back")
a=$(seconds sh -c "tar cf - -C '$work/mount/1' . | cat >/dev/null")
echo "tar of the mount $a s, restore $b s, ratio $(ratio "$a" "$b")"
stop
rm -rf "$work/small" "$work/copy" "$work/back"

echo "== a file of $large MB, 1000 reads of 4 KiB"
mkdir "$work/large"
perl -e 'srand(1); my $t = join "", map { chr(32 + int rand 64) } 1 .. 1 << 20;
  for (1 .. $ARGV[0]) { print $_, substr $t, 0, (1 << 20) - length }' "$large" >"$work/large/file"
for kind in "--compression none" "--compression zstd"; do
  # shellcheck disable=SC2086 # two words
  save "$work/large" $kind
  start
  perl -MTime::HiRes=time -e '
    use strict; my ($path, $whole) = @ARGV; open my $f, "<:raw", $path or die $!;
    open my $g, "<:raw", $whole or die $!; srand(2); my $size = -s $path; my @t;
    for (0 .. 1000) {
      my $at = 4096 * int rand($size / 4096); my $t = time;
      sysseek $f, $at, 0; sysread($f, my $b, 4096) == 4096 or die "read: $!";
      push @t, time - $t;
      sysseek $g, $at, 0; sysread $g, my $c, 4096; die "wrong bytes" if $b ne $c;
    }
    my $first = shift @t; @t = sort { $a <=> $b } @t;
    printf "%s: the first read %.3f s, with the check of the file; then median %.0f us\n",
      $ARGV[2], $first, 1e6 * $t[@t / 2];' \
    "$work/mount/1$work/large/file" "$work/large/file" "$kind"
  memory
  stop
done
rm -rf "$work/large" "$work/storage"

echo "== a job of $many files"
many_files "$work/many" "$many"
save "$work/many" --plain
rm -rf "$work/many"
start
ls "$work/mount/1" >/dev/null
a=$(seconds sh -c "find '$work/mount/1' | wc -l")
echo "find: $a s"
memory
stop
